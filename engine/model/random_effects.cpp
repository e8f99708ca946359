#include "engine/model/random_effects.h"

#include <algorithm>
#include <array>
#include <cmath>
#include "engine/base/distributions.h"

namespace kvo::model {

namespace {

struct Columns {
  std::vector<double> g, variances;
};

Columns columns_of(std::span<const Effect> effects) {
  Columns columns;
  for (const Effect& effect : effects) {
    columns.g.push_back(effect.g);
    columns.variances.push_back(effect.variance);
  }
  return columns;
}

// Standard errors with a smaller relative difference count as equal.
constexpr double least_spread = 1e-7;

}  // namespace

Heterogeneity heterogeneity_of(const ModelFit& fit) {
  return {fit.QE,          fit.QE_p,        fit.residual.tau2,
          fit.residual.I2, fit.residual.H2, std::size_t(fit.QE_df)};
}

ModelFit fit_effects(const Design& design, std::span<const Effect> effects, Method method) {
  const auto [g, variances] = columns_of(effects);
  return fit_model(design, g, variances, method);
}

std::optional<ScaleIntervals> intervals_of_effects(const Design& design,
                                                   std::span<const Effect> effects) {
  const auto [g, variances] = columns_of(effects);
  return scale_intervals(design, g, variances);
}

std::vector<double> weights_of(std::span<const Effect> effects, double tau2) {
  double sum = 0;
  for (const Effect& effect : effects) sum += 1 / (effect.variance + tau2);
  std::vector<double> weights;
  for (const Effect& effect : effects) weights.push_back(100 / (effect.variance + tau2) / sum);
  return weights;
}

PooledEffect pool_effects(std::span<const Effect> effects, Method method) {
  const ModelFit fit = fit_effects(make_design({}, effects.size()), effects, method);
  const double tau2 = fit.residual.tau2;
  PooledEffect pooled{
      fit.coefficients.front(), heterogeneity_of(fit), {}, weights_of(effects, tau2)};
  const double df =
      method == Method::moments ? double(effects.size()) - 2 : pooled.mean.df.value_or(0);
  if (df > 0) {
    const double half =
        t_of_tail(interval_tail, df) * std::sqrt(tau2 + pooled.mean.se * pooled.mean.se);
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

SmallStudyOutcome small_study_test(std::span<const Effect> effects,
                                   std::span<const double> errors_by_size, Method method) {
  if (effects.size() < 3) return {{}, "there are fewer than 3 studies"};
  const auto [least, largest] = std::minmax_element(errors_by_size.begin(), errors_by_size.end());
  if (*largest - *least <= least_spread * *largest)
    return {{}, "all studies have samples of the same size"};
  // In units of the largest, so that no study is too large for a design.
  Term term{"error by size", {}};
  for (const double error : errors_by_size) term.values.push_back(error / *largest);
  const ModelFit fit = fit_effects(make_design(std::array{term}, effects.size()), effects, method);
  if (method == Method::restricted_likelihood && !fit.coefficients.back().df)
    return {{}, "the effects do not scatter"};
  SmallStudyTest test{fit.coefficients.back(), fit.coefficients.front()};
  for (double* value :
       {&test.slope.value, &test.slope.se, &test.slope.interval.low, &test.slope.interval.high})
    *value /= *largest;
  return {test, ""};
}

}  // namespace kvo::model
