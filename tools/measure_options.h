// The command line's measuring choices for `read`: mode, dark, reference and
// spectra (sensor_measure.h applies them).
#ifndef ORU_TOOLS_MEASURE_OPTIONS_H
#define ORU_TOOLS_MEASURE_OPTIONS_H

#include <string>
#include <vector>

// The files may be given several times: each sensor takes the first that
// holds a reading (or a calibration) of it.
struct MeasureOptions {
    std::string mode;  // empty: transmittance with a reference, dark with a dark, else raw
    std::vector<std::string> dark, reference, spectrum;
    std::string algorithm = "TNNLS-LCurve";
    std::string wavelength_range;  // "START:END" in nm; empty: the calibration's
    double step_nm = 0.0;  // 0: the calibration's
    bool force = false;  // accept a calibration of another sensor
};

#endif
