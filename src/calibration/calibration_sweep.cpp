// The response from a monochromator sweep: each step's reading less dark,
// per unit of source power and per ms of exposure, interpolated onto a grid.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numeric>
#include <string>
#include <vector>

#include "calibration/calibration_internal.h"

using oru_calibration::fail;

namespace {

constexpr int kBackgroundFilters[] = {1011, 1012, 1013};  // covered filters: the dark of each reading
constexpr double kSaturatedDn = 4095.0;

std::string check_inputs(int points, const double* nm, const double* power, const double* exposure,
                         const double* readings, double start, double end, double step) {
    if (points < 2 || !nm || !power || !exposure || !readings) return "a sweep needs at least two steps";
    for (int p = 0; p < points; ++p) {
        if (!std::isfinite(nm[p])) return "a step has no wavelength";
        if (!(power[p] > 0) || !std::isfinite(power[p])) return "step at " + std::to_string(nm[p]) + " nm has no power";
        if (!(exposure[p] > 0) || !std::isfinite(exposure[p])) return "a step has no exposure time";
    }
    if (!std::isfinite(start) || !std::isfinite(end) || !(step > 0) || end < start)
        return "the grid needs start <= end and a step above 0";
    if ((end - start) / step > 1e6) return "the grid has more than a million wavelengths";
    return "";
}

}  // namespace

extern "C" duCalibration* duCalibrationFromSweep(int points, const double* wavelength_nm, const double* power,
                                                 const double* exposure_ms, const double* readings,
                                                 const double* dark, double grid_start_nm, double grid_end_nm,
                                                 double grid_step_nm, char* error, int error_size) {
    const std::string why = check_inputs(points, wavelength_nm, power, exposure_ms, readings, grid_start_nm,
                                         grid_end_nm, grid_step_nm);
    if (!why.empty()) return fail(error, error_size, why), nullptr;
    try {
        std::vector<int> order(static_cast<size_t>(points));
        std::iota(order.begin(), order.end(), 0);
        std::sort(order.begin(), order.end(), [&](int a, int b) { return wavelength_nm[a] < wavelength_nm[b]; });
        for (size_t k = 1; k < order.size(); ++k)
            if (wavelength_nm[order[k]] == wavelength_nm[order[k - 1]])
                return fail(error, error_size, "two steps at " + std::to_string(wavelength_nm[order[k]]) + " nm"),
                       nullptr;
        const int w = static_cast<int>(std::floor((grid_end_nm - grid_start_nm) / grid_step_nm + 1e-9)) + 1;
        if (w < 2) return fail(error, error_size, "the grid needs at least two wavelengths"), nullptr;
        duCalibration* cal = duCalibrationCreate(w);
        if (!cal || duCalibrationAddValidFilters(cal) < 0 || (dark && duCalibrationAddDark(cal) < 0)) {
            duCalibrationFree(cal);
            return fail(error, error_size, "out of memory"), nullptr;
        }
        for (int i = 0; i < w; ++i) cal->wavelength_nm[i] = grid_start_nm + i * grid_step_nm;
        for (int b : kBackgroundFilters) cal->valid_filters[b] = 0;
        // Per step and filter: DN per unit power per ms.
        std::vector<double> unit(static_cast<size_t>(points) * DU_CALIBRATION_FILTERS);
        for (int p = 0; p < points; ++p) {
            const double* r = readings + static_cast<size_t>(p) * DU_CALIBRATION_FILTERS;
            double own_dark = 0;
            for (int b : kBackgroundFilters) own_dark += r[b] / 3;
            for (int f = 0; f < DU_CALIBRATION_FILTERS; ++f) {
                if (r[f] >= kSaturatedDn) cal->valid_filters[f] = 0;
                const double d = dark ? dark[f] : own_dark;
                unit[static_cast<size_t>(p) * DU_CALIBRATION_FILTERS + f] = (r[f] - d) / (power[p] * exposure_ms[p]);
            }
        }
        if (dark) std::copy(dark, dark + DU_CALIBRATION_FILTERS, cal->dark);
        const double first = wavelength_nm[order.front()], last = wavelength_nm[order.back()];
        size_t k = 1;
        for (int i = 0; i < w; ++i) {
            const double nm = cal->wavelength_nm[i];
            if (nm < first || nm > last) continue;  // not measured: left at 0
            while (k + 1 < order.size() && wavelength_nm[order[k]] < nm) ++k;
            const int a = order[k - 1], b = order[k];
            const double t = (nm - wavelength_nm[a]) / (wavelength_nm[b] - wavelength_nm[a]);
            for (int f = 0; f < DU_CALIBRATION_FILTERS; ++f) {
                const double ua = unit[static_cast<size_t>(a) * DU_CALIBRATION_FILTERS + f];
                const double ub = unit[static_cast<size_t>(b) * DU_CALIBRATION_FILTERS + f];
                cal->response[static_cast<size_t>(f) * w + i] = ua + t * (ub - ua);
            }
        }
        std::snprintf(cal->source, sizeof cal->source, "sweep");
        return cal;
    } catch (...) {
        return fail(error, error_size, "out of memory"), nullptr;
    }
}
