// The library's calibration functions, looked up in the liboru_device that
// load_oru_api loaded (globally), so the command line links nothing itself.
#ifndef ORU_TOOLS_CALIBRATION_API_H
#define ORU_TOOLS_CALIBRATION_API_H

#include <string>

#include "oru_calibration.h"

struct CalibrationApi {
    duCalibration* (*read)(const char*, char*, int);
    int (*write)(const duCalibration*, const char*, char*, int);
    void (*free)(duCalibration*);
    int (*add_dark)(duCalibration*);
    int (*bands)(const duCalibration*, double*, double*, double*);
    double (*exposure_ms)(int, int);
    duCalibration* (*from_sweep)(int, const double*, const double*, const double*, const double*, const double*,
                                 double, double, double, char*, int);
};

// After load_oru_api; false with the missing name in `error`.
bool load_calibration_api(CalibrationApi& api, std::string& error);

#endif
