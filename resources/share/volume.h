#pragma once

// Volumes on the grid of mni_grid(), and the few operations that masks and templates are made with.

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "engine/images/image.h"

namespace kvo::share {

using namespace images;

using Volume = std::vector<float>;       ///< one value for each voxel of mni_grid()
using Mask = std::vector<std::uint8_t>;  ///< 1 in the voxels of the mask, 0 elsewhere

/// An image is sampled at this many points, 0.5 mm apart, in each 2 mm voxel.
constexpr std::size_t points_per_voxel = 64;
using Samples = std::span<const float, points_per_voxel>;

enum class Sampling { nearest, trilinear };

/// Takes the samples of an image, which must live longer, by the image's own placement in the head.
class Sampler {
 public:
  Sampler(const Image& image, Sampling sampling);
  /// The values at the points of one voxel of mni_grid(); 0 at those outside the image.
  [[nodiscard]] std::array<float, points_per_voxel> samples(std::array<int, 3> voxel) const;

 private:
  const Image& image_;
  Sampling sampling_;
  Eigen::Matrix4d mm_to_image_;
  std::array<Eigen::Vector3d, points_per_voxel> offsets_;  ///< of the points, from the centre
};

/// A volume of what `measure` makes of the samples of each voxel. Voxels outside `within` (an empty
/// mask excludes none) stay 0. `measure` is called from several threads.
template <typename Measure>
Volume measure_voxels(const Image& image, Sampling sampling, const Mask& within, Measure measure) {
  const Grid& grid = mni_grid();
  const Sampler sampler(image, sampling);
  Volume volume(grid.voxels(), 0.0F);
#pragma omp parallel for
  for (int k = 0; k < grid.size[2]; ++k)
    for (int j = 0; j < grid.size[1]; ++j)
      for (int i = 0; i < grid.size[0]; ++i) {
        const std::size_t v = grid.index(i, j, k);
        if (!within.empty() && within[v] == 0) continue;
        const auto samples = sampler.samples({i, j, k});
        volume[v] = measure(Samples(samples));
      }
  return volume;
}

/// The voxels whose value is at least the threshold.
Mask at_least(const Volume& volume, float threshold);

/// The mask as a volume of the values 0 and 1.
Volume to_volume(const Mask& mask);

std::size_t count(const Mask& mask);

/// Convolution with a Gaussian kernel of that full width at half maximum, the outside being 0.
Volume smooth(const Volume& volume, double fwhm_mm);

/// Morphology with a ball as structuring element. The outside of the grid takes no part: it neither
/// grows into the mask nor wears it off.
Mask dilate(const Mask& mask, double radius_mm);
Mask erode(const Mask& mask, double radius_mm);

/// The part of the mask with the most voxels, voxels being neighbours when they share a face.
Mask largest_part(const Mask& mask);

/// The mask and every hole in it that no path through faces leads out of.
Mask fill_holes(const Mask& mask);

/// The voxels of `within` where the volume is largest across the sheet that runs through them:
/// along the direction of strongest downward curvature neither neighbour, one voxel away, is
/// higher. This is the non-maximum suppression that finds tract centres in Smith et al. 2006
/// (NeuroImage 31:1487), with the direction from the Hessian.
Mask sheet_centres(const Volume& volume, const Mask& within);

}  // namespace kvo::share
