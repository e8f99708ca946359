#pragma once

// What a statistic of the studies is when their effects lie anywhere: the null distributions of the
// analyses.

#include <functional>
#include <span>
#include <vector>

#include "engine/inference/inference_layer.h"
#include "engine/inference/null_distribution.h"
#include "engine/maps/meta_analysis.h"

namespace kvo::inference {

/// A statistic of the studies' effects and variances at some voxels: writes as many z values for
/// each map that it has.
using Statistic =
    std::function<void(std::span<const float* const> g, std::span<const float* const> var,
                       std::size_t voxels, std::span<float* const> z)>;

struct RandomizationRequest {
  const MetaAnalysis& meta;
  std::vector<std::vector<float>> images;        ///< the effects of those studies, by images_of()
  std::span<const std::vector<float>> observed;  ///< z maps of the studies as they are
  Statistic statistic;
};

/// Repeats the statistic on studies whose peaks have been moved to random voxels of the mask and
/// whose images have been shuffled in it (image_shuffle.h), as often as preprocessing was told,
/// showing progress, and compares each observed map with its results.
std::vector<NullDistribution> randomized(const RandomizationRequest& request);

}  // namespace kvo::inference
