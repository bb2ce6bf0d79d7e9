// Readings of the virtual sensor's spectral model without a USB round trip:
// its true response times a scene, with its shot and read noise averaged
// over frames, and the same truth as a calibration.
#ifndef ORU_TEST_LIT_READING_H
#define ORU_TEST_LIT_READING_H

#include <algorithm>
#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "oru_calibration.h"
#include "oru_measurement.h"
#include "oru_reconstruction.h"
#include "vsensor/optics.h"

namespace spectral_test {

constexpr const char* kSensorId = "A4486-3-12-40-2";
constexpr int kShutter = 100;
// The calibration is for ADC gain 1, which doubles the filters' answer.
constexpr double kGain = 2.0;
constexpr double kDnPerElectron = 0.25;
constexpr double kReadNoiseDn = 2.0;

// The virtual truth as oru-vsensor-calibration writes it; `perturb` is a
// relative multiplicative noise per entry (seeded).
inline duCalibration* truth_calibration(double perturb = 0.0, unsigned seed = 7) {
    duCalibration* cal = duCalibrationCreate(vsensor::kSpectrumPoints);
    const std::vector<double> truth = vsensor::true_response(kSensorId);
    std::mt19937 rng(seed);
    std::normal_distribution<double> unit(0.0, 1.0);
    for (int w = 0; w < vsensor::kSpectrumPoints; ++w) cal->wavelength_nm[w] = vsensor::kSpectrumStartNm + w;
    for (size_t i = 0; i < truth.size(); ++i) cal->response[i] = truth[i] * kGain * (1.0 + perturb * unit(rng));
    std::snprintf(cal->sensor_id, sizeof cal->sensor_id, "%s", kSensorId);
    cal->adc_gain = 1;
    cal->adc_range = 132;
    return cal;
}

inline duReadingInfo reading_info() {
    duReadingInfo info{};
    info.sensor_id = kSensorId;
    info.shutter_speed = kShutter;
    info.master_clock = 1;
    info.adc_gain = 1;
    info.adc_range = 132;
    return info;
}

struct Reading {
    std::vector<double> values;    // 1024 dark-corrected DN
    std::vector<double> spectrum;  // the scene as seen, on 350..1000 nm at 1 nm
};

// The scene scaled so the brightest filter reads `peak_dn`; noise-free when
// frames is 0.
inline Reading spectral_reading(const std::string& scene, int frames, unsigned seed, double peak_dn = 3000.0) {
    static const std::vector<double> truth = vsensor::true_response(kSensorId);
    Reading r;
    vsensor::parse_spectrum(scene, &r.spectrum, nullptr);
    double exposure_us = 0.0;
    duExactExposureTimeUs(1, kShutter, &exposure_us);
    const double exposure = exposure_us / 1000.0;
    std::vector<double> lit(DU_CALIBRATION_FILTERS, 0.0);
    for (int f = 0; f < DU_CALIBRATION_FILTERS; ++f)
        for (int w = 0; w < vsensor::kSpectrumPoints; ++w)
            lit[size_t(f)] += truth[size_t(f) * vsensor::kSpectrumPoints + size_t(w)] * r.spectrum[size_t(w)];
    const double scale = peak_dn / (*std::max_element(lit.begin(), lit.end()) * exposure * kGain);
    for (double& s : r.spectrum) s *= scale;
    std::mt19937 rng(seed);
    std::normal_distribution<double> unit(0.0, 1.0);
    r.values.resize(DU_CALIBRATION_FILTERS);
    for (int f = 0; f < DU_CALIBRATION_FILTERS; ++f) {
        const double signal = lit[size_t(f)] * scale * exposure * kGain;
        if (frames == 0) {
            r.values[size_t(f)] = signal;
            continue;
        }
        const double sigma = std::sqrt(signal * kDnPerElectron * kGain + kReadNoiseDn * kReadNoiseDn);
        double sum = 0;
        for (int k = 0; k < frames; ++k) sum += std::clamp(std::round(signal + sigma * unit(rng)), 0.0, 4095.0);
        r.values[size_t(f)] = sum / frames;
    }
    return r;
}

// Relative RMS error of `got` (on `grid`) against the true spectrum, over
// lo..hi nm, leaving out skip_lo..skip_hi nm when given.
inline double relative_rms(const std::vector<double>& grid, const std::vector<double>& got,
                           const std::vector<double>& truth, double lo, double hi, double skip_lo = 0,
                           double skip_hi = 0) {
    double err = 0, ref = 0;
    for (size_t i = 0; i < grid.size(); ++i) {
        if (grid[i] < lo || grid[i] > hi || (grid[i] >= skip_lo && grid[i] <= skip_hi)) continue;
        const double t = truth[size_t(std::lround(grid[i])) - vsensor::kSpectrumStartNm];
        err += (got[i] - t) * (got[i] - t);
        ref += t * t;
    }
    return std::sqrt(err / ref);
}

// Local maxima above `fraction` of the largest, each refined by a parabola
// through its neighbours; ascending wavelengths.
inline std::vector<double> peaks(const std::vector<double>& grid, const std::vector<double>& s, double fraction) {
    const double top = *std::max_element(s.begin(), s.end());
    std::vector<double> out;
    for (size_t i = 1; i + 1 < s.size(); ++i) {
        if (s[i] < fraction * top || s[i] < s[i - 1] || s[i] <= s[i + 1]) continue;
        const double den = s[i - 1] - 2 * s[i] + s[i + 1];
        const double shift = den < 0 ? 0.5 * (s[i - 1] - s[i + 1]) / den : 0.0;
        out.push_back(grid[i] + shift * (grid[i + 1] - grid[i]));
    }
    return out;
}

// The wavelength of the highest of those peaks.
inline double main_peak(const std::vector<double>& grid, const std::vector<double>& s) {
    double best = 0, top = -1;
    for (double nm : peaks(grid, s, 0.0)) {
        const size_t i = size_t(std::lower_bound(grid.begin(), grid.end(), nm) - grid.begin());
        const double v = std::max(s[std::min(i, s.size() - 1)], s[i ? i - 1 : 0]);
        if (v > top) top = v, best = nm;
    }
    return best;
}

}  // namespace spectral_test

#endif
