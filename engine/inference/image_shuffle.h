#pragma once

// Random images that are like a study's own: its values dealt out anew to its voxels, neighbours
// as much alike as they were.
//
// White noise is smoothed with a Gaussian kernel, and the image's values are given to the voxels in
// the order of the smoothed noise: the lowest value to the lowest voxel, and so on. The result is a
// permutation of the image with its whole distribution, variance included, and with its
// smoothness: a surrogate by amplitude adjustment (Theiler et al. 1992, Physica D 58:77; for maps
// of the brain Burt et al. 2020, NeuroImage 220:117038).
//
// The smoothness is the correlation between voxels that touch along an axis (Forman et al. 1995,
// Magnetic Resonance in Medicine 33:636), one for each axis. The kernel's width starts from the one
// that gives smoothed noise that correlation and is corrected by what trials show, since dealing
// out values that are not normally distributed weakens it, and a small mask biases its estimate.
//
// The noise lies in the box around the mask, closed to a torus one kernel larger, so that it is
// alike at the edges of the mask and in its midst.

#include <array>
#include <cstdint>
#include <span>
#include <utility>
#include <vector>

#include "engine/images/mask.h"
#include "engine/inference/inference_layer.h"

namespace kvo::inference {

/// What the images in a mask share.
class ShuffleSpace {
 public:
  explicit ShuffleSpace(const Mask& mask);

  /// The correlation along each axis between touching voxels that both have data, those of the map
  /// that are not 0; 0 when there are none or they are all the same.
  [[nodiscard]] std::array<double, 3> neighbour_correlations(std::span<const float> map) const;

 private:
  friend class ImageShuffle;
  std::array<int, 3> size_{};             ///< of the box around the mask
  std::vector<std::uint32_t> box_index_;  ///< of each voxel of the mask
  /// The voxels of the mask that touch along each axis.
  std::array<std::vector<std::pair<std::uint32_t, std::uint32_t>>, 3> neighbours_;
};

/// An image that is to be shuffled.
class ImageShuffle {
 public:
  /// `map` are the image's values in the voxels of the mask, 0 where it has no data. Measures and
  /// tries its smoothness, which takes as long as a few shuffles. The space must outlive it.
  ImageShuffle(const ShuffleSpace& space, std::span<const float> map, std::uint64_t seed,
               std::uint64_t name_hash);

  /// Room for one thread's work, which grows to what it needs.
  struct Room {
    std::vector<float> row, along_x, along_y, noise;
    std::vector<std::uint64_t> ranked, sorted;
  };

  /// Writes the image of that randomization for all voxels of the mask; those without data stay 0.
  void shuffle(std::uint64_t randomization, Room& room, float* map) const;

 private:
  void find_kernels(const std::array<double, 3>& wanted);
  void smooth_noise(std::uint64_t randomization, Room& room) const;

  const ShuffleSpace& space_;
  std::uint64_t seed_, name_hash_;
  std::vector<float> values_;                  ///< sorted
  std::vector<std::uint32_t> voxels_;          ///< with data, of the mask; none when all have
  std::array<std::vector<float>, 3> kernels_;  ///< of each axis, from the middle outwards
};

}  // namespace kvo::inference
