// Non-negative solutions of min 1/2 x'Hx - g'x, H = G + lambda^2 M, by the
// active-set method of Lawson and Hanson: every step stays feasible and
// lowers the objective, so it ends. It starts from the unconstrained
// solution's positive part, which is the answer for most broad light, or
// from a guess's positive part (a nearby weight's answer).
#include <algorithm>
#include <cmath>

#include "reconstruction/reconstruction_internal.h"

namespace oru_recon {

namespace {

// Bound on the variables let go in one reading (each costs one solve);
// reached only when rounding keeps one variable coming and going.
constexpr int kMaxRelease = 400;
// Variables let go together: those whose upward gradient is at least this
// share of the steepest one's.
constexpr double kReleaseShare = 0.05;

// The minimiser with the variables outside `free` held at 0. Whichever is
// cheaper: a Cholesky of H on the free variables, or a correction of H^-1
// (known from the factor) on the held ones.
VectorXd solve_on(const Factor& f, const VectorXd& g, const VectorXd& c, double l2, const std::vector<int>& free,
                  const std::vector<int>& held) {
    const Eigen::Index n = g.size();
    const double nf = double(free.size()), na = double(held.size());
    VectorXd x = VectorXd::Zero(n);
    if (free.empty()) return x;
    const VectorXd d = (f.gamma2.array() + l2).inverse().matrix();
    if (held.empty()) return f.z * d.cwiseProduct(c);
    if (nf * nf * nf / 3 <= na * na * double(n) + na * na * na / 3) {
        const MatrixXd h = f.g(free, free) + l2 * f.m(free, free);
        const VectorXd xf = h.llt().solve(VectorXd(g(free)));
        x(free) = xf;
        return x;
    }
    const VectorXd u = f.z * d.cwiseProduct(c);
    const MatrixXd za = f.z(held, Eigen::all);
    const MatrixXd s = za * d.asDiagonal() * za.transpose();
    const VectorXd mu = s.ldlt().solve(VectorXd(-u(held)));
    x = u + f.z * d.cwiseProduct(za.transpose() * mu);
    x(held).setZero();
    return x;
}

std::vector<int> where(const std::vector<char>& flags, char value) {
    std::vector<int> out;
    for (size_t i = 0; i < flags.size(); ++i)
        if (flags[i] == value) out.push_back(int(i));
    return out;
}

// H x for an x that is 0 outside the free variables: one column per free
// variable, as lines leave few of them.
VectorXd times_h(const Factor& f, double l2, const VectorXd& x, const std::vector<char>& is_free) {
    VectorXd hx = VectorXd::Zero(x.size());
    for (Eigen::Index i = 0; i < x.size(); ++i)
        if (is_free[size_t(i)] && x[i] != 0) hx += x[i] * (f.g.col(i) + l2 * f.m.col(i));
    return hx;
}

}  // namespace

VectorXd nonnegative(const Factor& f, const VectorXd& g, const VectorXd& c, double lambda, const VectorXd* guess) {
    const Eigen::Index n = g.size();
    const double l2 = lambda * lambda;
    const VectorXd start = guess ? *guess : unconstrained(f, c, lambda);
    std::vector<char> is_free(static_cast<size_t>(n));
    for (Eigen::Index i = 0; i < n; ++i) is_free[size_t(i)] = start[i] > 0;
    // The free variables' minimiser, dropping those that come out negative
    // until none does: a feasible point to start from.
    VectorXd x;
    for (;;) {
        x = solve_on(f, g, c, l2, where(is_free, 1), where(is_free, 0));
        bool dropped = false;
        for (Eigen::Index i = 0; i < n; ++i)
            if (is_free[size_t(i)] && x[i] <= 0) is_free[size_t(i)] = 0, dropped = true;
        if (!dropped) break;
    }
    const double gradient_tol = 1e-9 * std::max(g.cwiseAbs().maxCoeff(), 1e-300);
    for (int release = 0; release < kMaxRelease; ++release) {
        // Let go of the held variables whose gradients pull upwards hardest:
        // several at once, as a line needs tens of them and each round costs
        // a factorisation.
        const VectorXd w = g - times_h(f, l2, x, is_free);
        Eigen::Index j = -1;
        for (Eigen::Index i = 0; i < n; ++i)
            if (!is_free[size_t(i)] && w[i] > gradient_tol && (j < 0 || w[i] > w[j])) j = i;
        if (j < 0) break;
        std::vector<int> released;
        for (Eigen::Index i = 0; i < n; ++i)
            if (!is_free[size_t(i)] && w[i] >= kReleaseShare * w[j]) is_free[size_t(i)] = 1, released.push_back(int(i));
        bool moved = false;
        for (;;) {
            const VectorXd z = solve_on(f, g, c, l2, where(is_free, 1), where(is_free, 0));
            // Variables let go at 0 that the new minimiser would take below 0
            // are held again before any step. When none of this round's stay
            // free: the round is over, or retried with the steepest alone, or
            // (that one not moving either) rounding ends the search.
            bool again = false;
            for (Eigen::Index i = 0; i < n; ++i)
                if (is_free[size_t(i)] && x[i] <= 0 && z[i] <= 0) is_free[size_t(i)] = 0, again = true;
            if (again) {
                if (std::none_of(released.begin(), released.end(), [&](int i) { return is_free[size_t(i)]; })) {
                    if (moved) break;
                    if (released.size() == 1) return x.cwiseMax(0.0);
                    released.assign(1, int(j));
                    is_free[size_t(j)] = 1;
                }
                continue;
            }
            double alpha = 1.0;
            Eigen::Index blocking = -1;
            for (Eigen::Index i = 0; i < n; ++i) {
                if (!is_free[size_t(i)] || z[i] > 0) continue;
                const double a = x[i] / (x[i] - z[i]);
                if (a < alpha) alpha = a, blocking = i;
            }
            x += alpha * (z - x);
            moved = true;
            if (blocking < 0) break;
            // The blocking variable lands on 0 exactly; others within rounding.
            x[blocking] = 0;
            for (Eigen::Index i = 0; i < n; ++i)
                if (is_free[size_t(i)] && x[i] <= 0) is_free[size_t(i)] = 0, x[i] = 0;
        }
    }
    return x.cwiseMax(0.0);
}

}  // namespace oru_recon
