#pragma once

// From the peaks of a study to its map of effects.
//
// Around a peak the effect falls off as a Gaussian kernel K of the distance: g K. Where the kernels
// of several peaks overlap, the effects that they claim are averaged with the kernels as weights,
// so that the closest peak counts most: sum(K (g K)) / sum(K). A single peak is thus a plain
// Gaussian, two peaks at one place are their mean, and peaks that agree do not pile up.
//
// A kernel ends at three standard deviations, where it has fallen to 1.1 % of its height: far
// enough for the step not to matter, while voxels that no peak reaches are well defined: there g is
// 0. Distances are from the peak's own coordinate to the voxels' centres.

#include <array>
#include <vector>

#include "engine/images/mask.h"
#include "engine/maps/maps_layer.h"
#include "engine/studies/study_peaks.h"

namespace kvo::maps {

/// Where a Gaussian is cut off, in standard deviations.
inline constexpr double radius_in_sigmas = 3;
/// The distance at which the kernel of this FWHM ends, in mm.
double kernel_radius(double fwhm_mm);

/// A peak on the grid.
struct PlacedPeak {
  Voxel voxel;  ///< the voxel that it lies in, which may be outside the grid
  double g;
  std::array<double, 3> offset;  ///< mm from the voxel's centre
  /// The kernel's factors along each axis at the voxels voxel - reach ... voxel + reach.
  std::array<std::vector<double>, 3> factors;
  std::vector<double> squared_x_factors;
};

/// A kernel, given by its FWHM, and the peaks that it is laid around.
class PeakMap {
 public:
  PeakMap(double fwhm_mm, const std::vector<Peak>& peaks);

  [[nodiscard]] const std::vector<PlacedPeak>& peaks() const { return peaks_; }

  /// Working space for the sums of one slice; all zero between calls.
  struct Plane {
    Plane();
    std::vector<double> kernels, effects;
  };

  /// Computes g in the mask's voxels of slice k, with each peak moved (its offset kept) to the
  /// voxel of the same index in `voxels`; `g` has room for those voxels.
  void effects(const std::vector<Voxel>& voxels, int k, const Mask& mask, Plane& plane,
               float* g) const;

  /// Whether the peak's kernel, at its own place, reaches a voxel of the mask.
  [[nodiscard]] bool reaches(const PlacedPeak& peak, const Mask& mask) const;

 private:
  template <typename Row>
  void for_each_row(const PlacedPeak& peak, Voxel voxel, int k, const Row& row) const;

  double radius_;
  int reach_;
  std::vector<PlacedPeak> peaks_;
};

}  // namespace kvo::maps
