#pragma once

// A statistic in each voxel with its p values, one-tailed in either direction and two-tailed:
// uncorrected, and corrected for all the voxels of the mask.

#include <array>
#include <span>
#include <vector>

#include "engine/inference/extents.h"
#include "engine/inference/inference_layer.h"
#include "engine/inference/null_distribution.h"
#include "engine/inference/p_maps.h"

namespace kvo::inference {

/// Clusters are formed of voxels whose one-tailed p is below this.
inline constexpr double forming_p = 0.001;

/// The largest value, cluster and TFCE of each randomization, anywhere in one direction. Clusters
/// and TFCE may have been examined in fewer of them.
struct LargestValues {
  std::vector<float> value, extent, tfce;
  void add(const LargestValues& others);
};

/// Maps in the voxels of the mask. Those of p values corrected for the family-wise error are empty
/// when there are too few randomizations for a p of 0.05.
struct TestedMap {
  NullDistribution null;  ///< of the values of all voxels
  std::vector<float> statistic{};
  std::array<TailMaps, 2> tails{};
  TailMaps both{};
  std::vector<float> tfce{};                    ///< negative where the statistic is
  std::size_t randomizations = 0, spatial = 0;  ///< spatial: those with clusters and TFCE

  [[nodiscard]] const TailMaps& of(Tail tail) const {
    return tails[tail == Tail::positive ? 0 : 1];
  }
};

/// The values beyond which a share of forming_p of a null distribution lies in either direction, as
/// distances from 0, which are above 0.
std::array<float, 2> thresholds_of(const NullDistribution& null);

/// What the p of an observed map come from: its uncorrected p values, and the largest values of its
/// randomizations. Clusters are formed above these thresholds of the statistic in either direction.
struct Found {
  std::array<float, 2> thresholds;
  std::array<std::vector<float>, 2> p{};
  std::array<LargestValues, 2> largest{};
};
void add_corrected(TestedMap& tested, Found found, std::span<const float> observed,
                   Extents& extents);

}  // namespace kvo::inference
