#include "calibration_api.h"

#include <cmath>

#include "library_symbol.h"

bool load_calibration_api(CalibrationApi& api, std::string& error) {
    return bind_library_symbol("duCalibrationRead", api.read, error) &&
           bind_library_symbol("duCalibrationWrite", api.write, error) &&
           bind_library_symbol("duCalibrationFree", api.free, error) &&
           bind_library_symbol("duCalibrationAddDark", api.add_dark, error) &&
           bind_library_symbol("duCalibrationFilterBands", api.bands, error) &&
           bind_library_symbol("duExactExposureTimeUs", api.exposure_us, error) &&
           bind_library_symbol("duCalibrationFromSweep", api.from_sweep, error) &&
           bind_library_symbol("duReconstructorCreate", api.reconstructor_create, error) &&
           bind_library_symbol("duReconstructorFree", api.reconstructor_free, error) &&
           bind_library_symbol("duReconstructorGrid", api.reconstructor_grid, error) &&
           bind_library_symbol("duReadingUsableFilters", api.usable_filters, error) &&
           bind_library_symbol("duReconstruct", api.reconstruct, error) &&
           bind_library_symbol("duReconstructionAlgorithmName", api.algorithm_name, error);
}

double exposure_ms(const CalibrationApi& api, int master_clock, int shutter_speed) {
    double us = std::nan("");
    return api.exposure_us(master_clock, shutter_speed, &us) == 1 ? us / 1000.0 : std::nan("");
}
