// `oru-sensor info --calibration FILE`: the file's settings and, per filter,
// where it sees light (the library's centroid and band at half maximum).
#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "calibrate_command.h"

int print_calibration_summary(const CalibrationApi& cal_api, const std::string& path, FILE* out) {
    char error[256] = "";
    std::unique_ptr<duCalibration, void (*)(duCalibration*)> cal(cal_api.read(path.c_str(), error, sizeof error),
                                                                 cal_api.free);
    if (!cal) {
        std::fprintf(stderr, "oru-sensor: %s\n", error);
        return 1;
    }
    std::vector<double> centroid(DU_CALIBRATION_FILTERS), low(DU_CALIBRATION_FILTERS), high(DU_CALIBRATION_FILTERS);
    const int lit = cal_api.bands(cal.get(), centroid.data(), low.data(), high.data());
    std::fprintf(out,
                 "calibration:    %s\nsensor ID:      %s\nsource:         %s\ncreated:        %s\n"
                 "description:    %s\nwavelengths:    %d, %.1f..%.1f nm\nmaster clock:   %d MHz\n"
                 "ADC gain:       %d\nADC range:      %d\ndark:           %s\nfilters lit:    %d\n",
                 path.c_str(), cal->sensor_id, cal->source, cal->created, cal->description, cal->wavelength_count,
                 cal->wavelength_nm[0], cal->wavelength_nm[cal->wavelength_count - 1], cal->master_clock,
                 cal->adc_gain, cal->adc_range, cal->dark ? "yes" : "no", lit);
    std::fprintf(out, "%-7s %12s %12s %12s %9s %6s\n", "filter", "centroid_nm", "band_low_nm", "band_high_nm",
                 "width_nm", "valid");
    for (int f = 0; f < DU_CALIBRATION_FILTERS; ++f) {
        const int valid = cal->valid_filters ? cal->valid_filters[f] : 1;
        if (std::isnan(centroid[f])) {
            std::fprintf(out, "%-7d %12s %12s %12s %9s %6d\n", f, "-", "-", "-", "-", valid);
            continue;
        }
        std::fprintf(out, "%-7d %12.1f %12.1f %12.1f %9.1f %6d\n", f, centroid[f], low[f], high[f], high[f] - low[f],
                     valid);
    }
    return std::ferror(out) ? 1 : 0;
}
