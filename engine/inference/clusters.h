#pragma once

// The clusters of a thresholded map, their local peaks and the brain regions that they lie in.

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "engine/images/mask.h"
#include "engine/inference/inference_layer.h"
#include "engine/inference/p_maps.h"

namespace kvo::inference {

/// How many voxels of a cluster lie in a region of the atlas.
struct RegionShare {
  std::string region;
  std::size_t voxels;
};

/// A voxel of a cluster whose |z| no neighbour exceeds.
struct LocalPeak {
  Voxel voxel;
  double z = 0;
  VoxelP p{};            ///< one-tailed, in the peak's own direction
  std::string region{};  ///< with its Brodmann area, if any
  /// The effect with its 95 % interval: estimate, lower and upper limit.
  std::optional<std::array<double, 3>> effect{};
};

struct Cluster {
  bool positive = true;
  std::vector<std::uint32_t> grid_index;  ///< its voxels in the order of the MNI grid
  std::vector<LocalPeak> peaks;           ///< by falling |z|; never empty
  std::vector<RegionShare> regions;       ///< by falling number of voxels

  [[nodiscard]] std::size_t voxels() const { return grid_index.size(); }
};

/// The text for the region of a cluster or peak where the atlas has none.
inline constexpr const char* outside_atlas = "outside of the atlas";

/// The clusters of a map on the MNI grid: voxels of one sign that touch by a face, an edge or a
/// corner; 0 belongs to none. Positive clusters come first, then larger ones, then those with the
/// higher peak, then those first in the grid.
///
/// Peaks have voxel and z. They are local maxima of |z| among the 26 neighbours; of a plateau, only
/// the voxel closest to its centre. Those closer than 8 mm to a higher one are left out.
std::vector<Cluster> clusters_of(std::span<const float> z);

/// The region that a value of read_atlas() stands for, with its Brodmann area, if any.
std::string region_text(float atlas_value);

/// Gives the peaks their p values.
void add_p(std::vector<Cluster>& clusters, const BothTails& tails);

/// Gives the peaks their effects from maps on the grid: estimate, lower and upper limit.
void add_effects(std::vector<Cluster>& clusters, const std::array<std::vector<float>, 3>& effects);

/// The p_map_kinds that the peaks of any cluster have.
std::vector<std::size_t> kinds_of_p(std::span<const Cluster> clusters);

/// The values of the installation's atlas on the MNI grid: the whole part is the region, the first
/// two decimals the Brodmann area. Throws Refusal, naming the file, when it is missing or not on
/// the grid.
std::vector<float> read_atlas();

/// Names the regions of peaks and clusters. A cluster's are counted by whole regions, whatever the
/// Brodmann area.
void add_regions(std::vector<Cluster>& clusters, std::span<const float> atlas);

}  // namespace kvo::inference
