#pragma once

// Random-effects meta-analysis of one effect a study, as for the values of a region or of the whole
// brain: the pool, what it depends on, and the asymmetry of the funnel plot. The mean is the model
// without terms of meta_regression.h.

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

/// An estimate with its Wald test against the standard normal distribution, two-tailed.
struct Estimate {
  double value, se, z, p;
  Interval interval;
};
Estimate estimate_of(const Coefficient& coefficient);

/// What the model leaves unexplained. Q is Cochran's (the residual QE with moderators), its p that
/// of the chi-squared distribution; I2 = 100 (Q - df) / Q percent, never below 0, and H2 = Q / df,
/// never below 1 (Higgins and Thompson 2002, Statistics in Medicine 21:1539). Without degrees of
/// freedom Q, tau2 and I2 are 0, H2 and p are 1.
struct Heterogeneity {
  double Q, p, tau2, I2, H2;
  std::size_t df;
};
Heterogeneity heterogeneity_of(const ModelFit& fit);

/// fit_model() of the effects.
ModelFit fit_effects(const Design& design, std::span<const Effect> effects);

/// The studies' weights 1/(v + tau2), in percent of their sum.
std::vector<double> weights_of(std::span<const Effect> effects, double tau2);

/// The random-effects mean.
struct PooledEffect {
  Estimate mean;
  Heterogeneity heterogeneity;
  /// Where the true effect of a new study is expected: mean +- t(k - 2) sqrt(tau2 + se^2) (Higgins,
  /// Thompson and Spiegelhalter 2009, JRSS A 172:137); nothing with fewer than 3 studies.
  std::optional<Interval> prediction;
  std::vector<double> weights;  ///< of the studies, in percent
};

/// Pools at least one effect.
PooledEffect pool_effects(std::span<const Effect> effects);

/// The pool without each study in turn; none with a single study.
std::vector<PooledEffect> leave_one_out(std::span<const Effect> effects);

/// The classical regression test for funnel plot asymmetry (Egger et al. 1997, BMJ 315:629): effect
/// on standard error, weighted by 1/v with multiplicative dispersion, which is the regression of
/// g/se on 1/se. The slope is tested by t with k - 2 degrees of freedom, two-tailed.
struct EggerTest {
  double slope, se, t, p;
  double intercept;  ///< the effect expected of a study of no error
  std::size_t df;
};

/// The test, or the reason why there is none, as the end of a sentence: "there are fewer than 3
/// studies".
struct EggerOutcome {
  std::optional<EggerTest> test;
  std::string why_not;
};
EggerOutcome egger_test(std::span<const Effect> effects);

}  // namespace kvo::model
