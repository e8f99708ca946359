#include "engine/inference/dispersion_z.h"

namespace kvo::inference {

Eigen::VectorXd root_weights(const MetaAnalysis& meta, double tau2) {
  Eigen::VectorXd roots(Eigen::Index(meta.members.size()));
  for (std::size_t s = 0; s < meta.members.size(); ++s)
    roots(Eigen::Index(s)) =
        1 / std::sqrt(variance_of_g(meta.members[s].study.sample).at(0) + tau2);
  return roots;
}

Eigen::MatrixXd orthonormal(const Eigen::MatrixXd& columns) {
  Eigen::MatrixXd basis = columns;
  for (Eigen::Index t = 0; t < basis.cols(); ++t) {
    for (int twice = 0; twice < 2; ++twice)
      for (Eigen::Index j = 0; j < t; ++j)
        basis.col(t) -= basis.col(j).dot(basis.col(t)) * basis.col(j);
    basis.col(t) /= basis.col(t).norm();
  }
  return basis;
}

Eigen::MatrixXd other_columns(const Design& design, std::size_t coefficient) {
  Eigen::MatrixXd others(design.columns.rows(), design.columns.cols() - 1);
  Eigen::Index next = 0;
  for (Eigen::Index j = 0; j < design.columns.cols(); ++j)
    if (j != Eigen::Index(coefficient)) others.col(next++) = design.columns.col(j);
  return others;
}

}  // namespace kvo::inference
