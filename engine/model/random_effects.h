#pragma once

// Random-effects meta-analysis of one effect per study, as for the values of a region or of the
// whole brain: the pooled effect, what it depends on, and the asymmetry of the funnel plot. The
// mean is the model without terms of meta_regression.h.

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "engine/model/interval.h"
#include "engine/model/meta_regression.h"
#include "engine/model/model_layer.h"

namespace kvo::model {

/// A study's effect and its variance, which is above 0.
struct Effect {
  double g, variance;
};

/// What the model leaves unexplained. Q is Cochran's (the residual QE with moderators), with its p
/// from the chi-squared distribution. Without degrees of freedom nothing is known about it; then Q,
/// tau2 and I2 are 0, H2 and p are 1.
struct Heterogeneity {
  double Q, p, tau2, I2, H2;
  std::size_t df;
};
Heterogeneity heterogeneity_of(const ModelFit& fit);

/// fit_model() and scale_intervals() of the effects.
ModelFit fit_effects(const Design& design, std::span<const Effect> effects, Method method);
std::optional<ScaleIntervals> intervals_of_effects(const Design& design,
                                                   std::span<const Effect> effects);

/// The studies' weights 1/(v + tau2), in percent of their sum.
std::vector<double> weights_of(std::span<const Effect> effects, double tau2);

/// The random-effects mean.
struct PooledEffect {
  Estimate mean;
  Heterogeneity heterogeneity;
  /// Where the true effect of a new study is expected: mean +- t sqrt(tau2 + se^2) (Higgins,
  /// Thompson and Spiegelhalter 2009, JRSS A 172:137). With Method::moments t has k - 2 degrees of
  /// freedom, as there; with Method::restricted_likelihood the k - 1 of the mean, and there is no
  /// such interval where the mean has none.
  std::optional<Interval> prediction;
  std::vector<double> weights;  ///< of the studies, in percent
};

/// Pools at least one effect.
PooledEffect pool_effects(std::span<const Effect> effects,
                          Method method = Method::restricted_likelihood);

/// The pooled effect without each study in turn; none with a single study.
std::vector<PooledEffect> leave_one_out(std::span<const Effect> effects);

/// The regression test for small-study effects that stays valid for standardized mean differences:
/// on error_by_size(), which unlike the standard error of g does not depend on g (Pustejovsky and
/// Rodgers 2019, Research Synthesis Methods 10:57), as a term of the random-effects model.
struct SmallStudyTest {
  Estimate slope;
  Estimate intercept;  ///< the effect expected of a study without error
};

/// The test, or the reason why there is none, worded to end a sentence: "there are fewer than 3
/// studies".
struct SmallStudyOutcome {
  std::optional<SmallStudyTest> test;
  std::string why_not;
};
SmallStudyOutcome small_study_test(std::span<const Effect> effects,
                                   std::span<const double> errors_by_size, Method method);

}  // namespace kvo::model
