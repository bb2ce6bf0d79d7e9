// Each virtual sensor's spectral response, generated from its sensor ID.
// The curves imitate a filter-array sensor: every filter is silicon behind a
// thin-film stack, a broad main band plus weaker side features and a little
// leakage, so no filter singles out a wavelength.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <random>

#include "oru_sensor_constants.h"
#include "vsensor/optics.h"
#include "vsensor/vsensor.h"

namespace vsensor {

namespace {

constexpr double kWidestSigmaNm = 120.0;
// The narrowest feature still has a 59 nm band at half maximum.
constexpr double kNarrowestSigmaNm = 25.0;

uint64_t fnv1a(const std::string& text) {
    uint64_t h = 1469598103934665603ull;
    for (unsigned char c : text) h = (h ^ c) * 1099511628211ull;
    return h;
}

double silicon(double nm) {
    const double u = (nm - 720.0) / 210.0;
    return std::exp(-0.5 * u * u);
}

double gauss(double nm, double centre, double sigma) {
    const double u = (nm - centre) / sigma;
    return std::exp(-0.5 * u * u);
}

bool is_in(const int32_t* table, int n, int filter) { return std::find(table, table + n, filter) != table + n; }

// Where the main band of `filter` lies: the subgroups sweep across the range
// (so a plot shows structure), the filters between them anywhere.
double main_centre(int filter, std::mt19937_64& rng) {
    std::normal_distribution<double> jitter(0.0, 15.0);
    for (const auto& g : subgroup_range) {
        if (filter >= g[0] && filter <= g[1]) {
            const double frac = (filter - g[0]) / std::max(1.0, g[1] - g[0]);
            return std::clamp(400.0 + 540.0 * frac + jitter(rng), 400.0, 940.0);
        }
    }
    return std::uniform_real_distribution<double>(400.0, 940.0)(rng);
}

void fill_filter(double* row, int filter, std::mt19937_64& rng) {
    std::uniform_real_distribution<double> u(0.0, 1.0);
    const double c0 = main_centre(filter, rng);
    const double s0 = kNarrowestSigmaNm + u(rng) * 35.0;
    const int extra = 1 + static_cast<int>(u(rng) * 3);
    double centre[4], sigma[4], amp[4];
    for (int k = 0; k < extra; ++k) {
        centre[k] = 350.0 + u(rng) * 650.0;
        sigma[k] = 30.0 + u(rng) * (kWidestSigmaNm - 30.0);
        amp[k] = 0.15 + u(rng) * 0.45;
    }
    const double leak = 0.02 + u(rng) * 0.08;
    const double level = 0.10 + u(rng) * 0.15;
    double peak = 0.0;
    for (int w = 0; w < kSpectrumPoints; ++w) {
        const double nm = kSpectrumStartNm + w;
        double t = leak + gauss(nm, c0, s0);
        for (int k = 0; k < extra; ++k) t += amp[k] * gauss(nm, centre[k], sigma[k]);
        row[w] = silicon(nm) * t;
        peak = std::max(peak, row[w]);
    }
    for (int w = 0; w < kSpectrumPoints; ++w) row[w] *= level / peak;
}

}  // namespace

std::string sensor_id_text(const Identity& id) {
    char text[64];
    std::snprintf(text, sizeof text, "%c%d-%d-%d-%d-%d", id.lot_char, id.lot_id, id.wafer_id, id.x_coord, id.y_coord,
                  id.sensor_type);
    return text;
}

double exposure_ms(int shutter_speed) { return (shutter_speed * 912.0 + 160.0) / 1000.0; }

std::vector<double> true_response(const std::string& sensor_id) {
    std::vector<double> r(static_cast<size_t>(kFilters) * kSpectrumPoints, 0.0);
    std::mt19937_64 rng(fnv1a(sensor_id));
    int type = 0;
    const size_t dash = sensor_id.rfind('-');
    if (dash != std::string::npos) type = std::atoi(sensor_id.c_str() + dash + 1);
    for (int f = 0; f < kFilters; ++f) {
        double* row = &r[static_cast<size_t>(f) * kSpectrumPoints];
        if (is_in(SENSOR_TYPE_BACKGROUND_FILTER_INDEX, 3, f)) continue;  // covered: no light
        const int* marker = std::find(SENSOR_TYPE_FILTER_INDEX, SENSOR_TYPE_FILTER_INDEX + 8, f);
        if (marker != SENSOR_TYPE_FILTER_INDEX + 8) {
            // Open or covered by the bits of the sensor type.
            if ((type >> (marker - SENSOR_TYPE_FILTER_INDEX)) & 1)
                for (int w = 0; w < kSpectrumPoints; ++w) row[w] = 0.08 * silicon(kSpectrumStartNm + w);
            continue;
        }
        fill_filter(row, f, rng);
    }
    return r;
}

}  // namespace vsensor
