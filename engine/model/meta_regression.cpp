#include "engine/model/meta_regression.h"

#include <cmath>

#include "engine/base/distributions.h"
#include "engine/base/refusal.h"
#include "engine/model/between_studies.h"

namespace kvo::model {

namespace {

// Residuals that are smaller than effects by this factor are rounding errors.
constexpr double least_scatter = 1e-7;

Scales scales_of(const Values& values, const WeightedFit& common, double tau2) {
  const double typical = values.df() / common.trace;
  return {tau2, 100 * tau2 / (typical + tau2), tau2 / typical + 1};
}

double tau2_of(const Values& values, Method method) {
  if (method == Method::moments) return moments_tau2(values);
  if (const std::optional<double> tau2 = restricted_tau2(values)) return *tau2;
  throw Refusal(
      "The variance between studies cannot be estimated by restricted maximum likelihood (REML): "
      "its iterations do not converge. Are there effects that are far too large?");
}

/// Whether the effects differ from those of the model.
bool scatters(const Values& values, double tau2, double Q) {
  double square = 0;
  for (std::size_t s = 0; s < values.effects.size(); ++s)
    square += values.effects[s] * values.effects[s] / (values.variances[s] + tau2);
  return Q > least_scatter * least_scatter * square;
}

Estimate estimate_of(double value, double se, std::optional<double> df) {
  const double z = value / se;
  const double half = (df ? t_of_tail(interval_tail, *df) : interval_z) * se;
  const double tail = df ? t_tail(std::abs(z), *df) : normal_tail(std::abs(z));
  return {value, se, z, 2 * tail, {value - half, value + half}, df};
}

}  // namespace

ModelFit fit_model(const Design& design, std::span<const double> effects,
                   std::span<const double> variances, Method method) {
  const Values values{design, effects, variances};
  const std::size_t p = design.coefficients();
  ModelFit fit;
  fit.QE_df = values.df();
  fit.QM_df = double(p - 1);
  double tau2 = 0;
  if (fit.QE_df > 0) {
    const WeightedFit common = weighted_fit(values, 0);
    tau2 = tau2_of(values, method);
    fit.QE = common.Q;
    fit.residual = scales_of(values, common, tau2);
  }
  const WeightedFit weighted = weighted_fit(values, tau2);
  std::optional<double> df;
  double scale = 1;
  if (method == Method::restricted_likelihood && fit.QE_df > 0 &&
      scatters(values, tau2, weighted.Q)) {
    df = fit.QE_df;
    scale = weighted.Q / *df;
  }
  for (std::size_t t = 0; t < p; ++t)
    fit.coefficients.push_back(
        estimate_of(term_of(design, t, weighted.in_basis),
                    std::sqrt(scale * term_variance(design, t, weighted.spread)), df));
  fit.QE_p = chi_squared_tail(fit.QE, fit.QE_df);
  if (p == 1) return fit;
  // The basis without its first column spans the centred terms.
  SmallVector slopes{};
  SmallSymmetric spread{};
  for (std::size_t i = 0; i + 1 < p; ++i) {
    slopes[i] = weighted.in_basis[i + 1];
    for (std::size_t j = 0; j <= i; ++j)
      spread[in_triangle(i, j)] = weighted.spread[in_triangle(i + 1, j + 1)];
  }
  fit.QM = inverse_square(spread, slopes, p - 1);
  if (df) fit.QM /= scale * fit.QM_df;
  fit.QM_p = df ? f_tail(fit.QM, fit.QM_df, *df) : chi_squared_tail(fit.QM, fit.QM_df);
  return fit;
}

std::optional<ScaleIntervals> scale_intervals(const Design& design, std::span<const double> effects,
                                              std::span<const double> variances) {
  const Values values{design, effects, variances};
  const std::optional<Interval> tau2 = profile_tau2(values);
  if (!tau2) return {};
  const WeightedFit common = weighted_fit(values, 0);
  return ScaleIntervals{scales_of(values, common, tau2->low),
                        scales_of(values, common, tau2->high)};
}

}  // namespace kvo::model
