// Shared by the reconstruction room's files: the problem on the output grid,
// its factorisations and the solvers over them.
#ifndef ORU_RECONSTRUCTION_INTERNAL_H
#define ORU_RECONSTRUCTION_INTERNAL_H

#include <Eigen/Dense>
#include <memory>
#include <string>
#include <vector>

#include "oru_reconstruction.h"

namespace oru_recon {

using Eigen::MatrixXd;
using Eigen::VectorXd;

// What the spectrum is kept small by: its norm, or its second differences.
enum class Penalty { Ridge, Smooth };

// The calibration seen on the output grid: A = response x interpolation
// from the grid to the calibration's wavelengths (zero outside the range).
struct Problem {
    VectorXd grid_nm;        // n output wavelengths
    MatrixXd a;              // 1024 x n
    std::vector<char> lit;   // filters that answer light at all and are not flagged invalid
};

// Builds the problem; 1, or a DU_RECON_E_* code and the reason in `why`.
int build_problem(const duCalibration& cal, const duReconstructionOptions& o, Problem* out, std::string* why);

// The pencil (G, M) of one set of filters, diagonalised: with G = Au' Au and
// M the penalty's matrix, Z' G Z = diag(gamma2) and Z' M Z = I. Then for any
// weight lambda, (G + lambda^2 M)^-1 = Z diag(1 / (gamma2 + lambda^2)) Z'.
struct Factor {
    Penalty penalty;
    std::vector<char> used;  // 1024 flags: the filters this factor is for
    std::vector<int> rows;   // their indices
    MatrixXd au;             // rows x n
    MatrixXd g;              // n x n
    MatrixXd m;              // n x n
    MatrixXd z;              // n x n
    VectorXd gamma2;         // n
    MatrixXd w;              // Z' Au': n x rows, so that c = Z' Au' b is one product
    VectorXd z_ones;         // Z' 1, for the L1 penalty's linear term
};

std::shared_ptr<const Factor> factorise(const Problem& p, Penalty penalty, const std::vector<char>& used);

// The unconstrained solution's criteria for a weight, from c = Z' Au' b.
struct Spectral {
    const Factor* f;
    const VectorXd* c;
    double b2;  // |b|^2
    int m;      // filters used
    double residual2(double lambda) const;
    double penalty2(double lambda) const;
    double trace(double lambda) const;
};

double gcv_weight(const Spectral& s);
double lcurve_weight(const Spectral& s);
// x = (G + lambda^2 M)^-1 Au' b for the c of that b.
VectorXd unconstrained(const Factor& f, const VectorXd& c, double lambda);

// min 1/2 x'(G + lambda^2 M)x - g'x subject to x >= 0, where c = Z' g;
// `guess` (the answer for a nearby weight) names the variables to start
// with free, else the unconstrained solution does.
VectorXd nonnegative(const Factor& f, const VectorXd& g, const VectorXd& c, double lambda,
                     const VectorXd* guess = nullptr);

// GCV of a non-negative solution x for b: the variables held at 0 take no
// part, so the fit's degrees of freedom are those of the free ones alone.
double nonnegative_gcv(const Factor& f, const VectorXd& b, const VectorXd& x, double lambda);

// The algorithms this library provides, by name.
enum class Weight { Gcv, LCurve, L1Threshold };
struct Algorithm {
    const char* name;
    Penalty penalty;
    Weight weight;
    bool nonnegative;
};
// The algorithm called `name` (any case); NULL with the reason otherwise.
const Algorithm* find_algorithm(const char* name, std::string* why);
const Algorithm* algorithm_at(int index);

// One reading's spectrum on the factor's grid from b = its used filters'
// values per ms; returns the weight used.
double solve(const Algorithm& a, const Factor& f, const VectorXd& b, VectorXd* x);

}  // namespace oru_recon

#endif
