#pragma once

// Random-effects pooling of the studies' effects, voxel by voxel.
//
// Weights 1/(v + tau2) with the between-study variance tau2 of DerSimonian and Laird (1986,
// Controlled Clinical Trials 7:177), never below 0: tau2 = (Q - (k - 1)) / (sum w - sum w^2 / sum
// w) where w = 1/v and Q = sum w (g - mean)^2 (Cochran 1954). I2 = 100 (Q - (k - 1)) / Q percent,
// never below 0 (Higgins and Thompson 2002).

#include <cstddef>
#include <span>

#include "engine/model/model_layer.h"

namespace kvo::model {

/// Where pooled values go: an array for each, with one value per voxel; all but z may be null,
/// which leaves that result out.
struct PooledMaps {
  float* z;  ///< g / sqrt(var)
  float *g = nullptr, *var = nullptr, *tau2 = nullptr, *I2 = nullptr, *Q = nullptr;
};

/// Pools `voxels` voxels; the pointers lead to the effects and variances (all above 0) of k
/// studies. Needs at least one study; with one, Q, tau2 and I2 are 0.
void pool(std::span<const float* const> g, std::span<const float* const> var, std::size_t voxels,
          const PooledMaps& maps);

}  // namespace kvo::model
