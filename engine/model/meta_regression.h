#pragma once

// Random-effects meta-regression: a linear model of the studies' effects, of single values or voxel
// by voxel.
//
// Weighted least squares with weights 1/(v + tau2), where tau2 is the between-study variance that
// the terms leave unexplained (between_studies.h); in maps it is moments_tau2(). In maps I2 = 100
// (QE - (k - p)) / QE percent, never below 0: the share of the residual variance that is between
// studies.
//
// Everything is computed in the orthogonal basis of the design and transformed back, so that terms
// on very different scales lose no precision. Without terms the maps are made by pooling.h.

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

#include "engine/model/design.h"
#include "engine/model/interval.h"
#include "engine/model/model_layer.h"

namespace kvo::model {

/// How single values are analysed.
enum class Method {
  /// restricted_tau2(), with the standard errors and tests of Knapp and Hartung (2003, Statistics
  /// in Medicine 22:2693): the covariance times y'Py / (k - p), t and F with k - p degrees of
  /// freedom.
  restricted_likelihood,
  /// moments_tau2(), and tests by the normal and the chi-squared distribution.
  moments,
};

/// An estimate with its two-tailed test and 95 % interval.
struct Estimate {
  double value, se, z, p;  ///< z = value / se, which is a t where there are degrees of freedom
  Interval interval;
  std::optional<double> df;  ///< of t; none where z is a standard normal deviate
};

/// Heterogeneity on the scales of tau2, of I2 = 100 tau2 / (s2 + tau2) percent and of H2 = tau2 /
/// s2 + 1, where s2 = (k - p) / tr(P) with P at tau2 = 0 is the studies' typical variance (Higgins
/// and Thompson 2002, Statistics in Medicine 21:1539). With moments_tau2() I2 = 100 (QE - (k - p))
/// / QE and H2 = QE / (k - p), as long as QE is above k - p.
struct Scales {
  double tau2 = 0, I2 = 0, H2 = 1;
};

/// The fit of a model to single values. The intercept comes first, then the terms in their order.
struct ModelFit {
  std::vector<Estimate> coefficients;
  Scales residual;                     ///< heterogeneity
  double QE = 0, QE_p = 1, QE_df = 0;  ///< its chi-squared test
  /// Test of all terms together, chi-squared, or F where the coefficients have degrees of freedom;
  /// 0 without terms.
  double QM = 0, QM_p = 1, QM_df = 0;
};

/// Fits the model to one effect and variance (above 0) of each study. With as many coefficients as
/// studies, all of the residual heterogeneity is 0. Whatever the method, tests use the normal
/// distribution where there is no residual scatter to estimate: with as many coefficients as
/// studies, and where the model fits all effects exactly. Throws Refusal when no restricted_tau2()
/// is found.
ModelFit fit_model(const Design& design, std::span<const double> effects,
                   std::span<const double> variances, Method method);

/// The interval profile_tau2(), and the intervals of I2 and H2 that follow from it.
struct ScaleIntervals {
  Scales low, high;
};
std::optional<ScaleIntervals> scale_intervals(const Design& design, std::span<const double> effects,
                                              std::span<const double> variances);

/// Where the values of the voxels go: for each coefficient a map of z and, unless the list is
/// empty, of the estimate and its variance; maps that are null are left out. The intercept comes
/// first, then the terms in their order.
struct ModelMaps {
  std::span<float*const> z, g = {}, var = {};
  float *tau2 = nullptr, *I2 = nullptr, *Q = nullptr;
};

/// Fits the model in `voxels` voxels; the pointers lead to the studies' effects and variances (all
/// above 0).
void fit_model_maps(const Design& design, std::span<const float* const> effects,
                    std::span<const float* const> variances, std::size_t voxels,
                    const ModelMaps& maps);

}  // namespace kvo::model
