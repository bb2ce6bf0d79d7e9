// The reconstruction algorithms: which penalty, which rule for its weight,
// and whether the spectrum is held non-negative.
#include <cmath>
#include <strings.h>

#include "reconstruction/reconstruction_internal.h"

namespace oru_recon {

namespace {

const Algorithm kAlgorithms[] = {
    {"tikhonov-gcv", Penalty::Ridge, Weight::Gcv, false},
    {"TNNLS-GCV", Penalty::Smooth, Weight::Gcv, true},
    {"TNNLS-LCurve", Penalty::Smooth, Weight::LCurve, true},
    {"NNLS-L1", Penalty::Smooth, Weight::L1Threshold, true},
};

// Names of the published algorithm table whose meaning is not defined here.
const char* const kNotProvided[] = {"NNLS-SC", "NNLS-SCA-LCurve", "NNLS-SCA-GCV"};

// The L1 solution keeps the smoothness at this fraction of its L-curve weight:
// less splits an LED's line into spikes, and the L1 term alone leaves the
// free variables' system near singular under broad light.
constexpr double kL1SmoothFraction = 1.0;

std::string provided_list() {
    std::string list;
    for (const Algorithm& a : kAlgorithms) list += std::string(list.empty() ? "" : ", ") + a.name;
    return list;
}

}  // namespace

const Algorithm* find_algorithm(const char* name, std::string* why) {
    if (!name) name = "TNNLS-LCurve";
    for (const Algorithm& a : kAlgorithms)
        if (!strcasecmp(a.name, name)) return &a;
    for (const char* other : kNotProvided)
        if (!strcasecmp(other, name)) {
            *why = std::string("algorithm ") + other + " is not provided by this library (provided: " +
                   provided_list() + ")";
            return nullptr;
        }
    *why = std::string("unknown algorithm '") + name + "' (provided: " + provided_list() + ")";
    return nullptr;
}

const Algorithm* algorithm_at(int index) {
    const int count = int(sizeof kAlgorithms / sizeof kAlgorithms[0]);
    return index >= 0 && index < count ? &kAlgorithms[index] : nullptr;
}

double solve(const Algorithm& a, const Factor& f, const VectorXd& b, VectorXd* x) {
    const VectorXd c = f.w * b;
    const Spectral s{&f, &c, b.squaredNorm(), int(f.rows.size())};
    const double lambda = a.weight == Weight::Gcv ? gcv_weight(s) : lcurve_weight(s);
    if (!a.nonnegative) {
        *x = unconstrained(f, c, lambda);
        return lambda;
    }
    const VectorXd g = f.au.transpose() * b;
    if (a.weight != Weight::L1Threshold) {
        *x = nonnegative(f, g, c, lambda);
        return lambda;
    }
    // The L1 weight is the universal threshold: the noise level the L-curve fit
    // leaves, times sqrt(2 ln n), times a typical column's length.
    const double sigma = std::sqrt(s.residual2(lambda) / std::max(1.0, s.m - s.trace(lambda)));
    const double n = double(g.size());
    const double column = std::sqrt(f.g.diagonal().mean());
    const double mu = sigma * std::sqrt(2 * std::log(n)) * column;
    *x = nonnegative(f, g - VectorXd::Constant(g.size(), mu), c - mu * f.z_ones, kL1SmoothFraction * lambda);
    return mu;
}

}  // namespace oru_recon
