#pragma once

// How far the high values of a map reach: the extents of its clusters, and threshold-free cluster
// enhancement (TFCE; Smith and Nichols 2009, NeuroImage 44:83), the integral of sqrt(e(h)) h^2 over
// the heights h from 0 to a voxel's value, where e(h) is the number of voxels in the cluster above
// h that contains the voxel. It is computed exactly, without steps of height.
//
// Voxels that touch by a face, an edge or a corner are neighbours. The voxels enter from the
// highest to the lowest, and clusters grow and merge (a union-find structure: Tarjan 1975, Journal
// of the ACM 22:215).

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "engine/images/mask.h"
#include "engine/inference/inference_layer.h"

namespace kvo::inference {

/// The voxels of a mask and which of them touch, with one thread's working space for a map.
class Extents {
 public:
  explicit Extents(const Mask& mask);

  struct Largest {
    float extent = 0;  ///< voxels of the largest cluster above the threshold
    float tfce = 0;
  };
  /// The largest of a map with one value for each voxel of the mask; with a sign of -1, of the
  /// negated map. The threshold must be above 0.
  Largest largest(std::span<const float> map, float sign, float threshold);

  /// For each voxel the extent of its cluster above the threshold, 0 where it belongs to none.
  std::vector<float> extents(std::span<const float> map, float sign, float threshold);
  /// For each voxel its TFCE, 0 where the map is not above 0.
  std::vector<float> tfce(std::span<const float> map, float sign);

 private:
  /// A voxel, by its rank, in a tree with a root that stands for the cluster.
  struct Node {
    std::int32_t parent;
    std::int32_t size;  ///< of a root: voxels
    float level;        ///< of a root: the height integrated down to so far
    double best;        ///< of a root: the largest integral of its voxels
    double integral;    ///< of a voxel, less that of its parent
  };
  static constexpr std::int32_t none = -1;

  float grow(std::span<const float> map, float sign, float least, float threshold);
  std::int32_t root_of(std::int32_t node);
  std::int32_t merge(std::int32_t a, std::int32_t b);
  void finish_roots();
  void clear();

  std::vector<std::int32_t> place_;  ///< of each voxel of the mask in the padded grid
  std::array<std::int32_t, 26> steps_{};
  std::vector<std::int32_t> rank_;              ///< of each place in the padded grid, or none
  std::vector<Node> nodes_;                     ///< by rank
  std::vector<std::uint64_t> ranked_, sorted_;  ///< height and voxel
};

}  // namespace kvo::inference
