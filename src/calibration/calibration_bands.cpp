// Per-filter wavelength summary of a calibration: where each filter's
// response lies (centroid) and how far it reaches (band at half maximum).
#include <cmath>

#include "oru_calibration.h"

namespace {

// Wavelength between samples a and b where the response crosses `level`.
double crossing(const duCalibration* cal, const double* row, int a, int b, double level) {
    const double ra = row[a], rb = row[b];
    const double t = rb == ra ? 0.0 : (level - ra) / (rb - ra);
    return cal->wavelength_nm[a] + t * (cal->wavelength_nm[b] - cal->wavelength_nm[a]);
}

}  // namespace

extern "C" int duCalibrationFilterBands(const duCalibration* cal, double* centroid_nm, double* band_low_nm,
                                        double* band_high_nm) {
    if (!cal || cal->wavelength_count < 2 || !cal->response || !cal->wavelength_nm || !centroid_nm ||
        !band_low_nm || !band_high_nm)
        return -1;
    const int w = cal->wavelength_count;
    int with_band = 0;
    for (int f = 0; f < DU_CALIBRATION_FILTERS; ++f) {
        const double* row = cal->response + static_cast<size_t>(f) * w;
        int peak = 0;
        double weight = 0.0, moment = 0.0;
        for (int i = 0; i < w; ++i) {
            if (row[i] > row[peak]) peak = i;
            // Trapezoid weights, so an uneven grid counts each sample's share.
            const double left = i > 0 ? cal->wavelength_nm[i] - cal->wavelength_nm[i - 1] : 0.0;
            const double right = i + 1 < w ? cal->wavelength_nm[i + 1] - cal->wavelength_nm[i] : 0.0;
            const double r = row[i] > 0 ? row[i] : 0.0;
            weight += r * (left + right) / 2;
            moment += r * (left + right) / 2 * cal->wavelength_nm[i];
        }
        if (!(row[peak] > 0) || !(weight > 0)) {
            centroid_nm[f] = band_low_nm[f] = band_high_nm[f] = std::nan("");
            continue;
        }
        const double half = row[peak] / 2;
        int lo = 0, hi = w - 1;
        while (row[lo] < half) ++lo;
        while (row[hi] < half) --hi;
        centroid_nm[f] = moment / weight;
        band_low_nm[f] = lo > 0 ? crossing(cal, row, lo - 1, lo, half) : cal->wavelength_nm[0];
        band_high_nm[f] = hi < w - 1 ? crossing(cal, row, hi, hi + 1, half) : cal->wavelength_nm[w - 1];
        ++with_band;
    }
    return with_band;
}
