// Exported conversions between shutter speed and exposure time that need no
// sensor: the same arithmetic the active sensor's conversions use.
#include "oru_device_api.h"

#include "oru_device_api_state.h"
#include "oru_exposure_units.h"

extern "C" {

int duConvertShutterSpeedToExposureTime(int master_clock, int shutter_speed, double* exposure_time_val) {
    return oru_api_call([&] {
        oru_shutter_to_exposure_ms(master_clock, shutter_speed, exposure_time_val);
        return 1;
    });
}

int duConvertExposureTimeToShutterSpeed(int master_clock, double exposure_time_val, int* shutter_speed) {
    return oru_api_call([&] {
        oru_exposure_ms_to_shutter(master_clock, exposure_time_val, shutter_speed);
        return 1;
    });
}

}  // extern "C"
