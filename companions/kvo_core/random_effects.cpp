#include "companions/kvo_core/random_effects.h"

#include <Eigen/QR>
#include <algorithm>
#include <boost/math/distributions/chi_squared.hpp>
#include <boost/math/distributions/normal.hpp>
#include <boost/math/distributions/students_t.hpp>
#include <cmath>
#include <numeric>

namespace {

using boost::math::complement;
using Eigen::Index;
using Eigen::MatrixXd;
using Eigen::VectorXd;

constexpr double rank_tolerance = 1e-7;
constexpr double upper_tail = 0.025;

double normal_quantile() {
  return boost::math::quantile(complement(boost::math::normal(), upper_tail));
}

double t_quantile(double df) {
  return boost::math::quantile(complement(boost::math::students_t(df), upper_tail));
}

double chi_squared_p(double value, std::size_t df) {
  if (df == 0) return 1;
  return boost::math::cdf(complement(boost::math::chi_squared(double(df)), value));
}

Estimate estimate_of(double value, double se) {
  const double z = value / se;
  const double half = normal_quantile() * se;
  return {value,
          se,
          z,
          2 * boost::math::cdf(complement(boost::math::normal(), std::fabs(z))),
          {value - half, value + half}};
}

/// Weighted least squares by an orthogonal decomposition, which does not square the condition of
/// the design.
struct LeastSquares {
  VectorXd coefficients;
  MatrixXd covariance;  ///< (X' W X)^-1
  VectorXd leverage;    ///< diagonal of the hat matrix
  double residual;      ///< weighted sum of squares

  LeastSquares(const MatrixXd& design, const VectorXd& response, const VectorXd& weights) {
    const VectorXd roots = weights.cwiseSqrt();
    // Columns of unit length: the scale of a covariate must not tell.
    const MatrixXd weighted = roots.asDiagonal() * design;
    const VectorXd scale = weighted.colwise().norm().transpose().cwiseInverse();
    const MatrixXd scaled = weighted * scale.asDiagonal();
    const VectorXd weighted_response = roots.cwiseProduct(response);
    const Index p = design.cols();
    const Eigen::HouseholderQR<MatrixXd> qr(scaled);
    const MatrixXd Q = qr.householderQ() * MatrixXd::Identity(design.rows(), p);
    const MatrixXd R = qr.matrixQR().topRows(p).triangularView<Eigen::Upper>();
    const MatrixXd inverse = R.triangularView<Eigen::Upper>().solve(MatrixXd::Identity(p, p));
    const VectorXd projected = Q.transpose() * weighted_response;
    coefficients = scale.cwiseProduct(inverse * projected);
    covariance = scale.asDiagonal() * (inverse * inverse.transpose()) * scale.asDiagonal();
    leverage = Q.rowwise().squaredNorm();
    residual = (weighted_response - Q * projected).squaredNorm();
  }
};

Heterogeneity heterogeneity_of(double Q, std::size_t df, double trace_P) {
  if (df == 0) return {.Q = 0, .p = 1, .tau2 = 0, .I2 = 0, .H2 = 1, .df = 0};
  const double excess = std::max(0.0, Q - double(df));
  return {.Q = Q,
          .p = chi_squared_p(Q, df),
          .tau2 = excess / trace_P,
          .I2 = excess > 0 ? 100 * excess / Q : 0,
          .H2 = std::max(1.0, Q / double(df)),
          .df = df};
}

VectorXd values_of(std::span<const Effect> effects) {
  VectorXd values(Index(effects.size()));
  for (std::size_t i = 0; i < effects.size(); ++i) values[Index(i)] = effects[i].g;
  return values;
}

VectorXd variances_of(std::span<const Effect> effects) {
  VectorXd variances(Index(effects.size()));
  for (std::size_t i = 0; i < effects.size(); ++i) variances[Index(i)] = effects[i].variance;
  return variances;
}

}  // namespace

std::optional<std::size_t> redundant_column(const MatrixXd& design) {
  MatrixXd basis(design.rows(), 0);
  for (Index column = 0; column < design.cols(); ++column) {
    const double length = design.col(column).norm();
    VectorXd rest = design.col(column) / (length > 0 ? length : 1);
    // Twice, so that rounding leaves nothing of the earlier columns.
    for (int pass = 0; pass < 2; ++pass) rest -= basis * (basis.transpose() * rest);
    if (!(rest.norm() > rank_tolerance)) return std::size_t(column);
    basis.conservativeResize(Eigen::NoChange, column + 1);
    basis.col(column) = rest.normalized();
  }
  return std::nullopt;
}

ModelFit fit_model(std::span<const Effect> effects, const MatrixXd& design) {
  const VectorXd g = values_of(effects), variances = variances_of(effects);
  const std::size_t p = std::size_t(design.cols());
  const VectorXd fixed_weights = variances.cwiseInverse();
  const LeastSquares fixed(design, g, fixed_weights);
  ModelFit fit;
  fit.residual = heterogeneity_of(fixed.residual, effects.size() - p,
                                  (fixed_weights.array() * (1 - fixed.leverage.array())).sum());
  const VectorXd weights = (variances.array() + fit.residual.tau2).inverse();
  const LeastSquares random(design, g, weights);
  for (Index i = 0; i < design.cols(); ++i)
    fit.coefficients.push_back(
        estimate_of(random.coefficients[i], std::sqrt(random.covariance(i, i))));
  fit.QM_df = p - 1;
  const auto tail = Index(p) - 1;
  const VectorXd moderators = random.coefficients.tail(tail);
  const MatrixXd covariance = random.covariance.bottomRightCorner(tail, tail);
  // Scaled to correlations, so that covariates of different units make no ill-conditioned matrix.
  const VectorXd scale = covariance.diagonal().cwiseSqrt().cwiseInverse();
  const VectorXd scaled = scale.cwiseProduct(moderators);
  const MatrixXd correlation = scale.asDiagonal() * covariance * scale.asDiagonal();
  fit.QM = tail > 0 ? scaled.dot(correlation.colPivHouseholderQr().solve(scaled)) : 0;
  fit.QM_p = chi_squared_p(fit.QM, fit.QM_df);
  const VectorXd percent = 100 * weights / weights.sum();
  fit.weights.assign(percent.begin(), percent.end());
  return fit;
}

PooledEffect pool_effects(std::span<const Effect> effects) {
  ModelFit fit = fit_model(effects, MatrixXd::Ones(Index(effects.size()), 1));
  PooledEffect pooled{fit.coefficients.front(), fit.residual, {}, std::move(fit.weights)};
  if (effects.size() >= 3) {
    const double half = t_quantile(double(effects.size()) - 2) *
                        std::sqrt(pooled.heterogeneity.tau2 + pooled.mean.se * pooled.mean.se);
    pooled.prediction = Interval{pooled.mean.value - half, pooled.mean.value + half};
  }
  return pooled;
}

std::vector<PooledEffect> leave_one_out(std::span<const Effect> effects) {
  std::vector<PooledEffect> pools;
  for (std::size_t left_out = 0; effects.size() > 1 && left_out < effects.size(); ++left_out) {
    std::vector<Effect> rest(effects.begin(), effects.end());
    rest.erase(rest.begin() + std::ptrdiff_t(left_out));
    pools.push_back(pool_effects(rest));
  }
  return pools;
}

EggerOutcome egger_test(std::span<const Effect> effects) {
  if (effects.size() < 3) return {{}, "there are fewer than 3 studies"};
  const VectorXd g = values_of(effects), variances = variances_of(effects);
  MatrixXd design = MatrixXd::Ones(g.size(), 2);
  design.col(1) = variances.cwiseSqrt();
  if (redundant_column(design)) return {{}, "all studies have the same standard error"};
  const VectorXd weights = variances.cwiseInverse();
  const LeastSquares fit(design, g, weights);
  const double total = g.cwiseAbs2().dot(weights);
  if (!(fit.residual > 1e-24 * total)) return {{}, "the effects do not scatter"};
  EggerTest test{};
  test.df = effects.size() - 2;
  test.intercept = fit.coefficients[0];
  test.slope = fit.coefficients[1];
  test.se = std::sqrt(fit.covariance(1, 1) * fit.residual / double(test.df));
  test.t = test.slope / test.se;
  test.p =
      2 * boost::math::cdf(complement(boost::math::students_t(double(test.df)), std::fabs(test.t)));
  return {test, ""};
}
