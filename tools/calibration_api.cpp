#include "calibration_api.h"

#include <dlfcn.h>

#include <cmath>

namespace {

template <typename F>
bool bind(const char* name, F& fn, std::string& error) {
    fn = reinterpret_cast<F>(dlsym(RTLD_DEFAULT, name));
    if (!fn) error = std::string("liboru_device lacks ") + name;
    return fn != nullptr;
}

}  // namespace

bool load_calibration_api(CalibrationApi& api, std::string& error) {
    return bind("duCalibrationRead", api.read, error) && bind("duCalibrationWrite", api.write, error) &&
           bind("duCalibrationFree", api.free, error) && bind("duCalibrationAddDark", api.add_dark, error) &&
           bind("duCalibrationFilterBands", api.bands, error) && bind("duExactExposureTimeUs", api.exposure_us, error) &&
           bind("duCalibrationFromSweep", api.from_sweep, error);
}

double exposure_ms(const CalibrationApi& api, int master_clock, int shutter_speed) {
    double us = std::nan("");
    return api.exposure_us(master_clock, shutter_speed, &us) == 1 ? us / 1000.0 : std::nan("");
}
