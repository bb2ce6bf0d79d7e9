// Choosing the regularisation weight from the singular values and the
// projected reading alone: each trial weight costs one pass over them.
#include <algorithm>
#include <cmath>
#include <limits>

#include "reconstruction/reconstruction_internal.h"

namespace oru_recon {

namespace {

// Trial weights: log-spaced from 1e-9 of the largest singular value to it.
constexpr int kTrials = 200;
constexpr double kLowestDecade = -9.0;
constexpr int kGoldenSteps = 40;

double largest_singular(const Factor& f) { return std::sqrt(std::max(f.gamma2.maxCoeff(), 1e-300)); }

std::vector<double> log_trials(const Factor& f) {
    const double top = std::log10(largest_singular(f));
    std::vector<double> t(kTrials);
    for (int i = 0; i < kTrials; ++i) t[size_t(i)] = top + kLowestDecade * (1.0 - double(i) / (kTrials - 1));
    return t;
}

double gcv(const Spectral& s, double log_lambda) {
    const double lambda = std::pow(10.0, log_lambda);
    const double dof = s.m - s.trace(lambda);
    // Fewer filters than grid points: tiny weights fit every reading exactly.
    if (dof < 0.5) return std::numeric_limits<double>::infinity();
    return s.residual2(lambda) / (dof * dof);
}

}  // namespace

double Spectral::residual2(double lambda) const {
    const auto l2 = lambda * lambda;
    const auto d = f->gamma2.array() + l2;
    const double fitted = (c->array().square() * (f->gamma2.array() + 2 * l2) / d.square()).sum();
    return std::max(b2 - fitted, b2 * 1e-300);
}

double Spectral::penalty2(double lambda) const {
    const auto d = f->gamma2.array() + lambda * lambda;
    return (c->array().square() / d.square()).sum();
}

double Spectral::trace(double lambda) const {
    return (f->gamma2.array() / (f->gamma2.array() + lambda * lambda)).sum();
}

double gcv_weight(const Spectral& s) {
    const std::vector<double> t = log_trials(*s.f);
    size_t best = 0;
    for (size_t i = 1; i < t.size(); ++i)
        if (gcv(s, t[i]) < gcv(s, t[best])) best = i;
    // Golden-section search between the best trial's neighbours.
    double lo = t[best ? best - 1 : 0], hi = t[std::min(best + 1, t.size() - 1)];
    const double r = (std::sqrt(5.0) - 1) / 2;
    double x1 = hi - r * (hi - lo), x2 = lo + r * (hi - lo);
    double f1 = gcv(s, x1), f2 = gcv(s, x2);
    for (int k = 0; k < kGoldenSteps; ++k) {
        if (f1 < f2) {
            hi = x2, x2 = x1, f2 = f1;
            x1 = hi - r * (hi - lo), f1 = gcv(s, x1);
        } else {
            lo = x1, x1 = x2, f1 = f2;
            x2 = lo + r * (hi - lo), f2 = gcv(s, x2);
        }
    }
    return std::pow(10.0, (lo + hi) / 2);
}

// The corner: the point of largest curvature of (log residual, log penalty)
// as the weight grows, by central differences over the trial weights.
double lcurve_weight(const Spectral& s) {
    const std::vector<double> t = log_trials(*s.f);
    std::vector<double> x(t.size()), y(t.size());
    for (size_t i = 0; i < t.size(); ++i) {
        const double lambda = std::pow(10.0, t[i]);
        x[i] = 0.5 * std::log(s.residual2(lambda));
        y[i] = 0.5 * std::log(std::max(s.penalty2(lambda), 1e-300));
    }
    size_t best = 1;
    double best_kappa = -std::numeric_limits<double>::infinity();
    for (size_t i = 1; i + 1 < t.size(); ++i) {
        const double h = t[i + 1] - t[i];
        const double dx = (x[i + 1] - x[i - 1]) / (2 * h), dy = (y[i + 1] - y[i - 1]) / (2 * h);
        const double ddx = (x[i + 1] - 2 * x[i] + x[i - 1]) / (h * h), ddy = (y[i + 1] - 2 * y[i] + y[i - 1]) / (h * h);
        const double speed = dx * dx + dy * dy;
        if (speed <= 0) continue;
        const double kappa = (dx * ddy - ddx * dy) / std::pow(speed, 1.5);
        if (kappa > best_kappa) best_kappa = kappa, best = i;
    }
    return std::pow(10.0, t[best]);
}

// On the free set F the solution is (G_FF + lambda^2 M_FF)^-1 g_F, linear
// in b: its influence matrix has trace tr((G_FF + lambda^2 M_FF)^-1 G_FF).
double nonnegative_gcv(const Factor& f, const VectorXd& b, const VectorXd& x, double lambda) {
    std::vector<int> free;
    for (Eigen::Index i = 0; i < x.size(); ++i)
        if (x[i] > 0) free.push_back(int(i));
    const double m = double(b.size());
    const double residual2 = (f.au(Eigen::all, free) * x(free) - b).squaredNorm();
    if (free.empty()) return residual2 / (m * m);
    const MatrixXd g = f.g(free, free);
    const double dof = MatrixXd(g + lambda * lambda * f.m(free, free)).llt().solve(g).trace();
    return m - dof < 0.5 ? std::numeric_limits<double>::infinity() : residual2 / ((m - dof) * (m - dof));
}

}  // namespace oru_recon
