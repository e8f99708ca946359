#pragma once

// The statistic that randomizations recompute: z of a coefficient by weighted least squares, with
// the dispersion of the residuals where it exceeds what the weights imply.
//
// A study's weight is 1 / (v + tau2) in all voxels, with v the variance of its g where there is no
// effect, and one tau2 for the whole map. With y the effects times the roots of the weights, and a
// the projection of y onto what the other columns leave of the coefficient's, z = a / max(1, s),
// where s^2 = (|y|^2 - |its projection on the design|^2) / (studies - coefficients): multiplicative
// dispersion (McCullagh and Nelder 1989, Generalized Linear Models, section 4.5), kept at 1 or
// more, so that a voxel where the studies report hardly anything, and all alike, is not a finding.
// Where few report anything, z is a sum of their effects.

#include <Eigen/Core>
#include <algorithm>
#include <cmath>

#include "engine/inference/inference_layer.h"
#include "engine/maps/meta_analysis.h"
#include "engine/model/design.h"

namespace kvo::inference {

/// The roots of the studies' weights.
Eigen::VectorXd root_weights(const MetaAnalysis& meta, double tau2);

/// An orthonormal basis of the span of the columns, which must be linearly independent
/// (Gram-Schmidt, as in make_design()).
Eigen::MatrixXd orthonormal(const Eigen::MatrixXd& columns);

/// The columns of the design without that of a coefficient.
Eigen::MatrixXd other_columns(const Design& design, std::size_t coefficient);

/// z of a projection, given the residual sum of squares.
inline float dispersion_z(float projection, float residual, float df) {
  return projection / std::sqrt(std::max(1.0F, residual / df));
}

}  // namespace kvo::inference
