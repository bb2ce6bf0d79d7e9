// The calibration on the output grid: the requested range and step, and
// the filters that can take part.
#include <algorithm>
#include <cmath>
#include <cstdio>

#include "reconstruction/reconstruction_internal.h"

namespace oru_recon {

namespace {

// Grid ends may miss the calibration's wavelengths by rounding only.
constexpr double kSlackNm = 1e-9;

bool all_finite(const double* v, size_t n) {
    return std::all_of(v, v + n, [](double x) { return std::isfinite(x); });
}

// Hat functions: the spectrum between two grid points is the straight line
// between their values, and nothing outside the grid's ends.
MatrixXd interpolation(const double* fine, int count, const VectorXd& grid) {
    MatrixXd p = MatrixXd::Zero(count, grid.size());
    const Eigen::Index last = grid.size() - 1;
    for (int k = 0; k < count; ++k) {
        const double w = fine[k];
        if (w < grid[0] - kSlackNm || w > grid[last] + kSlackNm) continue;
        const Eigen::Index j =
            std::min<Eigen::Index>(last - 1, std::upper_bound(grid.data(), grid.data() + grid.size(), w) - grid.data() - 1);
        const double t = std::clamp((w - grid[j]) / (grid[j + 1] - grid[j]), 0.0, 1.0);
        p(k, j) = 1.0 - t;
        p(k, j + 1) = t;
    }
    return p;
}

}  // namespace

int build_problem(const duCalibration& cal, const duReconstructionOptions& o, Problem* out, std::string* why) {
    const int count = cal.wavelength_count;
    if (count < 2 || !cal.wavelength_nm || !cal.response) return *why = "calibration without a response", DU_RECON_E_ARGUMENT;
    if (!all_finite(cal.wavelength_nm, count) || !all_finite(cal.response, size_t(count) * DU_CALIBRATION_FILTERS))
        return *why = "calibration holds NaN or infinite values", DU_RECON_E_NOT_A_NUMBER;
    const double first = cal.wavelength_nm[0], last = cal.wavelength_nm[count - 1];
    double finest = last - first;
    for (int k = 1; k < count; ++k) finest = std::min(finest, cal.wavelength_nm[k] - cal.wavelength_nm[k - 1]);
    const double start = o.range_start_nm ? o.range_start_nm : first;
    const double end = o.range_end_nm ? o.range_end_nm : last;
    if (!std::isfinite(start) || !std::isfinite(end) || !std::isfinite(o.step_nm))
        return *why = "wavelength range or step is not a number", DU_RECON_E_NOT_A_NUMBER;
    if (start < first - kSlackNm || end > last + kSlackNm || start >= end) {
        char text[160];
        std::snprintf(text, sizeof text, "wavelength range %g..%g nm is not inside the calibration's %g..%g nm", start,
                      end, first, last);
        return *why = text, DU_RECON_E_RANGE;
    }
    if (o.step_nm < 0 || (o.step_nm > 0 && o.step_nm < finest - kSlackNm)) {
        char text[120];
        std::snprintf(text, sizeof text, "step %g nm is finer than the calibration's %g nm", o.step_nm, finest);
        return *why = text, DU_RECON_E_RANGE;
    }
    std::vector<double> grid;
    if (o.step_nm > 0) {
        for (int i = 0;; ++i) {
            const double w = start + i * o.step_nm;
            if (w > end + kSlackNm) break;
            grid.push_back(w);
        }
    } else {
        for (int k = 0; k < count; ++k)
            if (cal.wavelength_nm[k] >= start - kSlackNm && cal.wavelength_nm[k] <= end + kSlackNm)
                grid.push_back(cal.wavelength_nm[k]);
    }
    // Second differences need three points.
    if (grid.size() < 3) return *why = "wavelength range holds fewer than 3 grid points", DU_RECON_E_RANGE;

    out->grid_nm = Eigen::Map<const VectorXd>(grid.data(), Eigen::Index(grid.size()));
    using RowMajor = Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;
    const Eigen::Map<const RowMajor> response(cal.response, DU_CALIBRATION_FILTERS, count);
    out->a = response * interpolation(cal.wavelength_nm, count, out->grid_nm);
    out->lit.assign(DU_CALIBRATION_FILTERS, 0);
    for (int i = 0; i < DU_CALIBRATION_FILTERS; ++i) {
        const bool valid = o.all_filters || !cal.valid_filters || cal.valid_filters[i];
        out->lit[size_t(i)] = valid && out->a.row(i).cwiseAbs().maxCoeff() > 0;
    }
    return 1;
}

}  // namespace oru_recon
