#include "calibration_api.h"

#include <dlfcn.h>

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
           bind("duCalibrationFilterBands", api.bands, error) && bind("duExposureTimeMs", api.exposure_ms, error) &&
           bind("duCalibrationFromSweep", api.from_sweep, error);
}
