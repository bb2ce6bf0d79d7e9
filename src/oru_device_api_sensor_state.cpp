// Exported state of each connected sensor (usable, failed or removed) and the
// recovery of one that failed or was unplugged.
#include "oru_device_api.h"

#include "efm32com/oru_device_interface_sensor_reopen.h"
#include "efm32com/oru_device_interface_sensor_state.h"
#include "oru_device_api_lock.h"
#include "oru_device_api_state.h"
#include "stream/oru_frame_stream.h"

namespace {

// With g_apiLock held: 0 when the index names a connected sensor, else the
// result to return.
int check_connected(int sensor_index) {
    if (sensor_index < 0 || sensor_index >= duGetMaxSensorCount()) return -lu_ec_ill_defined_input;
    if (sensor_index >= g_total_num_of_sensors || g_pDeviceInterface[sensor_index] == nullptr)
        return -lu_ec_device_object_is_null;
    return 0;
}

}  // namespace

extern "C" {

int duGetSensorState(int sensor_index) {
    const ApiGuard guard(g_apiLock);
    if (const int invalid = check_connected(sensor_index)) return invalid;
    return sensor_health(static_cast<unsigned int>(sensor_index));
}

// Holds only the sensor it brings back: the others stream, and requests on
// them go on, meanwhile.
int duReconnectSensor(int sensor_index, const char* sensor_id) {
    return oru_api_call([&] {
        if (sensor_id == nullptr || *sensor_id == '\0') return -lu_ec_sensor_id_is_empty;
        ApiCall call(ApiHold::kSensor, sensor_index);
        if (const int invalid = check_connected(sensor_index)) return invalid;
        call.release_module_state();
        const auto sensor = static_cast<unsigned int>(sensor_index);
        // Its readers wake; the caller starts a new stream once it is back.
        oru_stream::close(sensor);
        return reopen_sensor(sensor, sensor_id);
    });
}

}  // extern "C"
