// Exported state of each connected sensor: usable, failed or removed.
#include "oru_device_api.h"

#include "efm32com/oru_device_interface_sensor_state.h"
#include "oru_device_api_lock.h"
#include "oru_device_api_state.h"

extern "C" {

int duGetSensorState(int sensor_index) {
    const ApiGuard guard(g_apiLock);
    if (sensor_index < 0 || sensor_index >= duGetMaxSensorCount()) return -lu_ec_ill_defined_input;
    if (sensor_index >= g_total_num_of_sensors || g_pDeviceInterface[sensor_index] == nullptr)
        return -lu_ec_device_object_is_null;
    return sensor_health(static_cast<unsigned int>(sensor_index));
}

}  // extern "C"
