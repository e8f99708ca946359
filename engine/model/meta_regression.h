#pragma once

// Random-effects meta-regression: a linear model of the studies' effects, of single values or voxel
// by voxel.
//
// Weighted least squares with weights 1/(v + tau2). The between-study variance that the terms leave
// unexplained is the method-of-moments estimate of DerSimonian and Laird (1986, Controlled Clinical
// Trials 7:177) as generalised by Raudenbush (2009, The Handbook of Research Synthesis and
// Meta-Analysis, chapter 16): tau2 = (QE - (k - p)) / tr(P), never below 0, for k studies and p
// coefficients, where W = diag(1/v), P = W - W X (X'WX)^-1 X'W and QE = y'Py. I2 = 100 (QE - (k -
// p)) / QE percent, never below 0: the share of the residual variance that is between studies.
//
// All is computed in the orthogonal basis of the design and transformed back, so that terms of very
// different scales lose no digits. Without terms the maps are made by pooling.h.

#include <cstddef>
#include <span>
#include <vector>

#include "engine/model/design.h"
#include "engine/model/model_layer.h"

namespace kvo::model {

/// An estimated coefficient with its standard error, z = estimate / se, and two-tailed p.
struct Coefficient {
  double estimate, se, z, p;
};

/// What a model says of single values. The intercept comes first, then the terms in their order.
struct ModelFit {
  std::vector<Coefficient> coefficients;
  Eigen::MatrixXd covariance;          ///< of the estimates
  double tau2 = 0, I2 = 0, H2 = 1;     ///< residual heterogeneity; I2 in percent, H2 at least 1
  double QE = 0, QE_p = 1, QE_df = 0;  ///< its chi-squared test
  double QM = 0, QM_p = 1, QM_df = 0;  ///< test of all terms together; 0 without terms
};

/// Fits the model to one effect and variance (above 0) of each study. With as many coefficients as
/// studies, all of the residual heterogeneity is 0.
ModelFit fit_model(const Design& design, std::span<const double> effects,
                   std::span<const double> variances);

/// Where the values of the voxels go: for each coefficient a map of z and, unless the list is
/// empty, of the estimate and its variance; maps that are null are left out. The intercept comes
/// first, then the terms in their order.
struct ModelMaps {
  std::span<float*const> z, g = {}, var = {};
  float *tau2 = nullptr, *I2 = nullptr, *Q = nullptr;
};

/// Fits the model in so many voxels of the studies whose effects and variances (all above 0) the
/// pointers lead to.
void fit_model_maps(const Design& design, std::span<const float* const> effects,
                    std::span<const float* const> variances, std::size_t voxels,
                    const ModelMaps& maps);

}  // namespace kvo::model
