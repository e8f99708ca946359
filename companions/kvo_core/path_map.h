#pragma once

// Peaks to a map of effects when their effects spread along tissue that belongs together.
//
// The kernel is that of peak_map.h; what differs is its distance. Between voxels of the mask that
// touch (26-neighbourhood) a step has the length
//
//     sqrt(d^2 + (FWHM (t1 - t2) / range)^2)
//
// with d its length in mm, t the voxels' values in the correlation template and range that of the
// template in the mask: the template is a landscape as high as the FWHM, and paths lie on its
// ground (the geodesic distance of Toivanen 1996, Pattern Recognition Letters 17:437; Criminisi et
// al. 2008, ECCV 5302:99). From one end of the template's range to the other an effect thus falls
// to 1/16 or less, whatever the units of the template and the FWHM. Paths do not leave the mask.
//
// With E the straight distance from the peak, L that of the shortest path and R the kernel's radius
//
//     D = (1 - a) E + a min(L, R)
//
// which is E for an anisotropy a of 0 and the path's length for 1, changes continuously between
// them also where no path leads, and never falls as a rises, since L >= E. The kernel is above 0
// where D < R; where D >= R an effect ends. For a = 0 this unit is not used, and no template.
//
// A path starts at the peak's own coordinate, to which the template's value in the mask's voxel
// closest to it is ascribed (of voxels as close, the first in the grid's order); it leads straight
// to that voxel or one that touches it, and goes on from there. So also from outside of the mask.

#include <cstdint>
#include <span>
#include <vector>

#include "companions/kvo_core/mask.h"
#include "companions/kvo_core/peak_map.h"

/// The voxels of a mask and the steps between them. The mask must outlive it.
class PathMap {
 public:
  /// `correlation` are the template's values in the voxels of the mask; 0 < anisotropy <= 1.
  PathMap(const Mask& mask, std::span<const float> correlation, double fwhm_mm, double anisotropy);

  /// Room for one thread's sums.
  struct Room {
    explicit Room(const PathMap& map);
    std::vector<double> kernels, effects;           ///< of each voxel; all zero between the calls
    std::vector<float> path;                        ///< of each voxel; the radius between the calls
    std::vector<std::uint32_t> touched;             ///< the voxels whose path is another
    std::vector<std::vector<std::uint32_t>> queue;  ///< by the path's length in steps of 2 mm
  };

  /// Computes g in the mask's voxels, each peak moved (its offset kept) to the voxel of the same
  /// index in `voxels`; `g` has room for all of them.
  void effects(std::span<const PlacedPeak> peaks, std::span<const Voxel> voxels, Room& room,
               float* g) const;

 private:
  [[nodiscard]] std::int64_t closest_voxel(const PlacedPeak& peak, Voxel at) const;
  void find_paths(const PlacedPeak& peak, Voxel at, Room& room) const;
  void add_peak(const PlacedPeak& peak, Voxel at, Room& room) const;
  template <typename Visit>
  void for_each_voxel_within(double radius, const PlacedPeak& peak, Voxel at,
                             const Visit& visit) const;

  const Mask& mask_;
  std::vector<float> height_;         ///< mm in the template's landscape, of each voxel of the mask
  std::vector<std::int32_t> number_;  ///< of each voxel of the grid in the mask, or -1
  std::vector<std::uint32_t> first_step_, neighbour_;
  std::vector<float> length_;  ///< of each step
  double sigma_, radius_, anisotropy_;
};
