// The factorisation of one set of filters, done once and reused for every
// reading that uses those filters.
#include "reconstruction/reconstruction_internal.h"

namespace oru_recon {

namespace {

// Keeps the smoothness matrix invertible: constant and straight spectra,
// which second differences do not see, still get a faint norm penalty.
constexpr double kSmoothRidge = 1e-6;

MatrixXd penalty_matrix(Penalty penalty, Eigen::Index n) {
    if (penalty == Penalty::Ridge) return MatrixXd::Identity(n, n);
    MatrixXd l = MatrixXd::Zero(n - 2, n);
    for (Eigen::Index i = 0; i + 2 < n; ++i) {
        l(i, i) = 1.0;
        l(i, i + 1) = -2.0;
        l(i, i + 2) = 1.0;
    }
    MatrixXd m = l.transpose() * l;
    m.diagonal().array() += kSmoothRidge;
    return m;
}

}  // namespace

std::shared_ptr<const Factor> factorise(const Problem& p, Penalty penalty, const std::vector<char>& used) {
    auto f = std::make_shared<Factor>();
    f->penalty = penalty;
    f->used = used;
    for (int i = 0; i < int(used.size()); ++i)
        if (used[size_t(i)]) f->rows.push_back(i);
    const Eigen::Index n = p.a.cols(), rows = Eigen::Index(f->rows.size());
    f->au = p.a(f->rows, Eigen::all);
    f->g = f->au.transpose() * f->au;
    f->m = penalty_matrix(penalty, n);

    // Standard form: with M = C C', the SVD Au C^-T = U S V' diagonalises the
    // pencil by Z = C^-T V, and Z' Au' = S U'.
    Eigen::LLT<MatrixXd> chol(f->m);
    const MatrixXd abar =
        penalty == Penalty::Ridge ? f->au : MatrixXd(chol.matrixL().solve(f->au.transpose()).transpose());
    Eigen::BDCSVD<MatrixXd> svd(abar, Eigen::ComputeThinU | Eigen::ComputeFullV);
    const VectorXd& s = svd.singularValues();
    const Eigen::Index k = s.size();
    f->gamma2 = VectorXd::Zero(n);
    f->gamma2.head(k) = s.array().square().matrix();
    f->z = penalty == Penalty::Ridge ? svd.matrixV() : MatrixXd(chol.matrixU().solve(svd.matrixV()));
    f->w = MatrixXd::Zero(n, rows);
    f->w.topRows(k) = s.asDiagonal() * svd.matrixU().transpose();
    f->z_ones = f->z.transpose() * VectorXd::Ones(n);
    return f;
}

VectorXd unconstrained(const Factor& f, const VectorXd& c, double lambda) {
    const VectorXd d = (f.gamma2.array() + lambda * lambda).inverse().matrix();
    return f.z * d.cwiseProduct(c);
}

}  // namespace oru_recon
