#include "engine/model/between_studies.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "engine/base/distributions.h"

namespace kvo::model {

namespace {

/// The root of a function that falls from above 0 at `low` to 0 or less at `high`, by bisection to
/// machine precision.
template <typename Function>
double root_between(double low, double high, const Function& function) {
  for (;;) {
    const double middle = low + (high - low) / 2;
    if (!(low < middle && middle < high)) return middle;
    (function(middle) > 0 ? low : high) = middle;
  }
}

/// The residual sum of squares without weights. (tau2 + the least variance) times Q is never
/// larger.
double plain_residual(const Values& values) {
  const Eigen::MatrixXd& basis = values.design.basis;
  const Eigen::Map<const Eigen::VectorXd> y(values.effects.data(), basis.rows());
  Eigen::VectorXd residual = y;
  // The columns are orthogonal and of equal length.
  for (Eigen::Index i = 0; i < basis.cols(); ++i)
    residual -= basis.col(i).dot(y) / double(basis.rows()) * basis.col(i);
  return residual.squaredNorm();
}

/// A tau2 beyond which the restricted likelihood only falls: there y'PPy is at most RSS / (tau2 +
/// least v)^2, and tr(P) at least df / (tau2 + largest v).
double largest_tau2(const Values& values) {
  const auto [least, largest] =
      std::minmax_element(values.variances.begin(), values.variances.end());
  const double share = plain_residual(values) / values.df();
  const double root = std::sqrt(share) * std::sqrt(share + 4 * (*largest - *least));
  return (share + root) / 2 - *least;
}

/// 0, and a logarithmic grid up to the largest value of interest.
std::vector<double> tried_tau2(double largest) {
  constexpr int steps = 40;
  constexpr double decades = 8;
  std::vector<double> tried = {0};
  for (int step = 0; step <= steps; ++step)
    tried.push_back(largest * std::pow(10, decades * (double(step) / steps - 1)));
  return tried;
}

}  // namespace

// Sums run study by study: the order of summation in a library's matrix product depends on the
// processor's caches.
WeightedFit weighted_fit(const Values& values, double tau2) {
  const std::size_t k = values.design.studies(), p = values.design.coefficients();
  const auto basis = [&](std::size_t s, std::size_t i) {
    return values.design.basis(Eigen::Index(s), Eigen::Index(i));
  };
  SmallSymmetric A{}, AA{};
  SmallVector b{};
  double log_determinants = 0;
  WeightedFit fit{};
  for (std::size_t s = 0; s < k; ++s) {
    const double variance = values.variances[s] + tau2, w = 1 / variance;
    for (std::size_t i = 0, m = 0; i < p; ++i) {
      const double part = w * basis(s, i);
      b[i] += part * values.effects[s];
      for (std::size_t j = 0; j <= i; ++j, ++m) {
        A[m] += part * basis(s, j);
        AA[m] += w * part * basis(s, j);
      }
    }
    fit.trace += w;
    log_determinants += std::log(variance);
  }
  fit.spread = inverse_of(A, p);
  const SmallSymmetric L = cholesky_of(A, p);
  for (std::size_t i = 0; i < p; ++i) {
    log_determinants += 2 * std::log(L[in_triangle(i, i)]);
    for (std::size_t j = 0; j < p; ++j) {
      fit.in_basis[i] += fit.spread[in_triangle(i, j)] * b[j];
      fit.trace -= fit.spread[in_triangle(i, j)] * AA[in_triangle(i, j)];
    }
  }
  double squares = 0;
  for (std::size_t s = 0; s < k; ++s) {
    double residual = values.effects[s];
    for (std::size_t i = 0; i < p; ++i) residual -= basis(s, i) * fit.in_basis[i];
    const double weighted = residual / (values.variances[s] + tau2);
    fit.Q += weighted * residual;
    squares += weighted * weighted;
  }
  fit.slope = squares - fit.trace;
  fit.log_likelihood = -(log_determinants + fit.Q) / 2;
  return fit;
}

double moments_tau2(const Values& values) {
  if (values.df() < 1) return 0;
  const WeightedFit fit = weighted_fit(values, 0);
  return std::max(0.0, (fit.Q - values.df()) / fit.trace);
}

std::optional<double> restricted_tau2(const Values& values) {
  if (values.df() < 1) return 0;
  const double largest = largest_tau2(values);
  if (largest <= 0) return 0;
  const std::vector<double> tried = tried_tau2(largest);
  std::vector<WeightedFit> fits;
  fits.reserve(tried.size());
  for (const double tau2 : tried) fits.push_back(weighted_fit(values, tau2));
  const auto best = std::max_element(fits.begin(), fits.end(), [](const auto& a, const auto& b) {
    return a.log_likelihood < b.log_likelihood;
  });
  if (!std::isfinite(best->log_likelihood) || !std::isfinite(best->slope)) return {};
  // Usually the next step brackets the maximum; more are needed where likelihoods are numerically
  // equal.
  auto low = std::size_t(best - fits.begin());
  while (low + 1 < fits.size() && fits[low + 1].slope > 0) ++low;
  while (low > 0 && fits[low].slope <= 0) --low;
  if (fits[low].slope <= 0) return 0;
  if (low + 1 == fits.size()) return {};
  return root_between(tried[low], tried[low + 1],
                      [&](double tau2) { return weighted_fit(values, tau2).slope; });
}

std::optional<Interval> profile_tau2(const Values& values) {
  if (values.df() < 1) return {};
  const double at_zero = weighted_fit(values, 0).Q, residual = plain_residual(values);
  const auto tau2_of = [&](double Q) {
    if (at_zero <= Q) return 0.0;
    return root_between(0, residual / Q,
                        [&](double tau2) { return weighted_fit(values, tau2).Q - Q; });
  };
  const double low_Q = chi_squared_of_tail(1 - interval_tail, values.df());
  if (at_zero < low_Q) return {};
  return Interval{tau2_of(chi_squared_of_tail(interval_tail, values.df())), tau2_of(low_Q)};
}

}  // namespace kvo::model
