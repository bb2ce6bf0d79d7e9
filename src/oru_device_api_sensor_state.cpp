// Exported state of each connected sensor (usable, failed or removed) and the
// recovery of one that failed or was unplugged.
#include "oru_device_api.h"

#include "efm32com/oru_device_interface_sensor_reopen.h"
#include "efm32com/oru_device_interface_sensor_state.h"
#include "oru_device_api_lock.h"
#include "oru_device_api_state.h"
#include "stream/oru_frame_stream.h"

extern "C" {

int duGetSensorState(int sensor_index) {
    const ApiGuard guard(g_apiLock);
    if (sensor_index < 0 || sensor_index >= duGetMaxSensorCount()) return -lu_ec_ill_defined_input;
    if (sensor_index >= g_total_num_of_sensors || g_pDeviceInterface[sensor_index] == nullptr)
        return -lu_ec_device_object_is_null;
    return sensor_health(static_cast<unsigned int>(sensor_index));
}

int duReconnectSensor(int sensor_index, const char* sensor_id) {
    const ApiGuard guard(g_apiLock);
    return oru_api_call([&] {
        if (sensor_id == nullptr || *sensor_id == '\0') return -lu_ec_sensor_id_is_empty;
        if (sensor_index < 0 || sensor_index >= duGetMaxSensorCount()) return -lu_ec_ill_defined_input;
        if (sensor_index >= g_total_num_of_sensors || g_pDeviceInterface[sensor_index] == nullptr)
            return -lu_ec_device_object_is_null;
        const auto sensor = static_cast<unsigned int>(sensor_index);
        // Its readers wake; the caller starts a new stream once it is back.
        oru_stream::close(sensor);
        return reopen_sensor(sensor, sensor_id);
    });
}

}  // extern "C"
