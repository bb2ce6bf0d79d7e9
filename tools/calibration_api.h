// The library's calibration and reconstruction functions, looked up in the liboru_device that
// load_oru_api loaded (globally), so the command line links nothing itself.
#ifndef ORU_TOOLS_CALIBRATION_API_H
#define ORU_TOOLS_CALIBRATION_API_H

#include <string>

#include "oru_calibration.h"
#include "oru_reconstruction.h"

struct CalibrationApi {
    duCalibration* (*read)(const char*, char*, int);
    int (*write)(const duCalibration*, const char*, char*, int);
    void (*free)(duCalibration*);
    int (*add_dark)(duCalibration*);
    int (*bands)(const duCalibration*, double*, double*, double*);
    int (*exposure_us)(int, int, double*);
    duCalibration* (*from_sweep)(int, const double*, const double*, const double*, const double*, const double*,
                                 double, double, double, char*, int);
    duReconstructor* (*reconstructor_create)(const duCalibration*, const duReconstructionOptions*, char*, int);
    void (*reconstructor_free)(duReconstructor*);
    int (*reconstructor_grid)(const duReconstructor*, double*, int);
    int (*usable_filters)(const double*, unsigned char*);
    int (*reconstruct)(duReconstructor*, const double*, const unsigned char*, const duReadingInfo*, double*,
                       duReconstructionResult*, char*, int);
    const char* (*algorithm_name)(int);
};

// The exact exposure in ms (NaN for a clock or shutter speed below 1): what a
// reading's DN are divided by.
double exposure_ms(const CalibrationApi& api, int master_clock, int shutter_speed);

// After load_oru_api; false with the missing name in `error`.
bool load_calibration_api(CalibrationApi& api, std::string& error);

#endif
