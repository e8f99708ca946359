#pragma once

// Random places for a study's peaks.
//
// The voxels of the mask are of three kinds: grey matter, white matter and others, by the masks of
// the installation. The peaks of all the studies determine how often one lies in each kind; within
// a kind all voxels are equally likely. Peaks of a study that are closer to each other than the
// kernel's FWHM, directly or through others, form a group, which is moved as a whole to a place
// where all of it is in the mask and not that close to another group, if some tries find one. If
// groups came closer than they are, a study's kernels would cover less than they do, and the
// studies' peaks would seem to converge. Where the mask itself has no room for a group, its peaks
// are placed one by one.

#include <array>
#include <cstdint>
#include <vector>

#include "engine/inference/inference_layer.h"
#include "engine/inference/random_stream.h"
#include "engine/maps/meta_analysis.h"
#include "engine/maps/peak_map.h"

namespace kvo::inference {

class Placement {
 public:
  /// `peaks` are those of all the studies. The mask must outlive it.
  Placement(const Mask& mask, const std::vector<std::vector<PlacedPeak>>& peaks);

  /// A random voxel of the mask.
  [[nodiscard]] Voxel draw(RandomStream& random) const;

  /// For each voxel of the mask the mean square of a Gaussian kernel of that FWHM in mm around a
  /// random voxel, relative to its average.
  [[nodiscard]] std::vector<float> mean_square_of_kernel(double fwhm_mm) const;

 private:
  static constexpr std::size_t kinds = 3;
  const Mask& mask_;
  std::array<std::vector<std::uint32_t>, kinds> voxels_;  ///< of each kind, by numbers in the mask
  std::array<std::uint32_t, kinds> shares_{};             ///< cumulative, of 2^32 - 1
};

/// The groups of a study's peaks, by their indices; no two are closer than the distance.
struct PeakGroups {
  std::vector<std::vector<std::size_t>> groups;
  double distance_mm;
};
PeakGroups peak_groups(const std::vector<PlacedPeak>& peaks, double distance_mm);

/// Draws voxels for the peaks of a study.
void place_groups(const std::vector<PlacedPeak>& peaks, const PeakGroups& groups, const Mask& mask,
                  const Placement& placement, RandomStream& random, std::vector<Voxel>& voxels);

}  // namespace kvo::inference
