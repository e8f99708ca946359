#pragma once

// The between-study variance, tau2, from one effect per study, with a linear model as moderators.
//
// With W = diag(1/(v + tau2)) and P = W - W X (X'WX)^-1 X'W, the generalised Q is y'Py, which falls
// as tau2 grows and has the chi-squared distribution with k - p degrees of freedom at the true
// tau2, for k studies and p coefficients.

#include <optional>
#include <span>

#include "engine/model/design.h"
#include "engine/model/interval.h"
#include "engine/model/model_layer.h"
#include "engine/model/small_symmetric.h"

namespace kvo::model {

/// One effect and one variance (above 0) of each study of the design.
struct Values {
  const Design& design;
  std::span<const double> effects, variances;

  /// Degrees of freedom of the residual, k - p.
  [[nodiscard]] double df() const {
    return double(design.studies()) - double(design.coefficients());
  }
};

/// Weighted least squares at a given tau2.
struct WeightedFit {
  SmallVector in_basis;   ///< coefficients of the design's basis
  SmallSymmetric spread;  ///< their covariance, (X'WX)^-1
  double Q;               ///< y'Py
  double trace;           ///< of P
  double slope;  ///< y'PPy - tr(P): twice the derivative of the restricted log-likelihood in tau2
  double log_likelihood;  ///< restricted, up to a constant
};
WeightedFit weighted_fit(const Values& values, double tau2);

/// The estimate of DerSimonian and Laird (1986, Controlled Clinical Trials 7:177) as generalised by
/// Raudenbush (2009, The Handbook of Research Synthesis and Meta-Analysis, chapter 16): (Q - (k -
/// p)) / tr(P) with Q and P at tau2 = 0, never below 0. 0 without degrees of freedom.
double moments_tau2(const Values& values);

/// The tau2 of at least 0 that maximises the restricted likelihood (Viechtbauer 2005, Journal of
/// Educational and Behavioral Statistics 30:261), to machine precision; the global maximum where
/// there are several. 0 without degrees of freedom; nothing when values are so large or small that
/// no maximum is found.
std::optional<double> restricted_tau2(const Values& values);

/// The 95 % interval of tau2: all values of at least 0 with a generalised Q between the 2.5 and the
/// 97.5 % quantile of chi-squared (Viechtbauer 2007, Statistics in Medicine 26:37). Nothing without
/// degrees of freedom, and nothing when the effects scatter so little that there is no such tau2.
std::optional<Interval> profile_tau2(const Values& values);

}  // namespace kvo::model
