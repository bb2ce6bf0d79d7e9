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

// NNLS-L1's smoothness for sparse light: the L-curve weight or these
// fractions of it, whichever gives the lowest non-negative GCV (tried in
// turn until the GCV rises). Lines 30 nm apart part at a tenth to a
// thirtieth; below that, noise splits single lines into spikes.
constexpr double kL1SharperFractions[] = {0.3, 0.1, 0.03};

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
    const VectorXd g1 = g - VectorXd::Constant(g.size(), mu), c1 = c - mu * f.z_ones;
    *x = nonnegative(f, g1, c1, lambda);
    // Broad light fills most of the grid; its smoothness is the L-curve's.
    if ((x->array() > 0).count() > g.size() / 2) return mu;
    double best = nonnegative_gcv(f, b, *x, lambda);
    VectorXd trial = *x;
    for (double fraction : kL1SharperFractions) {
        trial = nonnegative(f, g1, c1, fraction * lambda, &trial);
        const double score = nonnegative_gcv(f, b, trial, fraction * lambda);
        if (score >= best) break;
        best = score, *x = trial;
    }
    return mu;
}

}  // namespace oru_recon
