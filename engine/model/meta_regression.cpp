#include "engine/model/meta_regression.h"

#include <Eigen/Cholesky>
#include <algorithm>
#include <cmath>

#include "engine/base/distributions.h"

namespace kvo::model {

namespace {

using Square = Eigen::MatrixXd;
using Column = Eigen::VectorXd;

/// Single values of the studies, and what is added up of them. The sums grow study by study: the
/// order in which a library's matrix product takes them depends on the processor's caches.
struct Values {
  const Design& design;
  std::span<const double> effects, variances;

  [[nodiscard]] Column row(std::size_t s) const {
    return design.basis.row(Eigen::Index(s)).transpose();
  }
  /// Z' diag(w(s)) Z for the basis Z of the design.
  template <typename Weight>
  [[nodiscard]] Square squares(const Weight& w) const {
    const auto p = design.basis.cols();
    Square sum = Square::Zero(p, p);
    for (std::size_t s = 0; s < effects.size(); ++s) sum += w(s) * row(s) * row(s).transpose();
    return sum;
  }
  /// Z' diag(w(s)) y for the effects y.
  template <typename Weight>
  [[nodiscard]] Column products(const Weight& w) const {
    Column sum = Column::Zero(design.basis.cols());
    for (std::size_t s = 0; s < effects.size(); ++s) sum += w(s) * effects[s] * row(s);
    return sum;
  }
};

void find_heterogeneity(const Values& values, ModelFit& fit) {
  const auto weight = [&](std::size_t s) { return 1 / values.variances[s]; };
  const Eigen::LDLT<Square> A(values.squares(weight));
  const Column fitted = A.solve(values.products(weight));
  double trace =
      -A.solve(values.squares([&](std::size_t s) { return weight(s) * weight(s); })).trace();
  for (std::size_t s = 0; s < values.effects.size(); ++s) {
    const double residual = values.effects[s] - values.row(s).dot(fitted);
    fit.QE += weight(s) * residual * residual;
    trace += weight(s);
  }
  const double excess = fit.QE - fit.QE_df;
  if (excess <= 0 || trace <= 0) return;
  fit.tau2 = excess / trace;
  fit.I2 = 100 * excess / fit.QE;
  fit.H2 = fit.QE / fit.QE_df;
}

}  // namespace

ModelFit fit_model(const Design& design, std::span<const double> effects,
                   std::span<const double> variances) {
  const Values values{design, effects, variances};
  const Eigen::Index k = design.basis.rows(), p = design.basis.cols();
  ModelFit fit;
  fit.QE_df = double(k - p);
  fit.QM_df = double(p - 1);
  if (k > p) find_heterogeneity(values, fit);
  const auto weight = [&](std::size_t s) { return 1 / (variances[s] + fit.tau2); };
  const Square spread = values.squares(weight).ldlt().solve(Square::Identity(p, p));
  const Column in_basis = spread * values.products(weight);
  const Square back = design.back;
  const Column estimates = back * in_basis;
  fit.covariance = back * spread * back.transpose();
  for (Eigen::Index j = 0; j < p; ++j) {
    const double se = std::sqrt(fit.covariance(j, j)), z = estimates(j) / se;
    fit.coefficients.push_back({estimates(j), se, z, 2 * normal_tail(std::abs(z))});
  }
  // The basis without its first column spans the centred terms.
  const Column slopes = in_basis.tail(p - 1);
  const Square slopes_spread = spread.bottomRightCorner(p - 1, p - 1);
  if (p > 1) fit.QM = slopes.dot(slopes_spread.ldlt().solve(slopes));
  fit.QE_p = chi_squared_tail(fit.QE, fit.QE_df);
  fit.QM_p = chi_squared_tail(fit.QM, fit.QM_df);
  return fit;
}

}  // namespace kvo::model
