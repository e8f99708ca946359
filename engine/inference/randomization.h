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

/// Repeats the statistic on studies whose peaks have been moved to random voxels of the mask and
/// whose images have been shuffled in it (image_shuffle.h), as often as preprocessing was told,
/// showing progress, and compares each map of `observed`, the z maps of the studies as they are,
/// with its results. Throws Refusal when the map of a study with an image cannot be read.
std::vector<NullDistribution> randomized(const MetaAnalysis& meta,
                                         std::span<const std::vector<float>> observed,
                                         const Statistic& statistic);

}  // namespace kvo::inference
