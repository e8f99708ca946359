#pragma once

// Peaks to a map of effects when their effects spread along tissue that belongs together.
//
// As in peak_map.h a kernel K is laid around each peak and g = sum(K (K g)) / sum(K). Here K is
// what the effect at the peak says about that at a voxel: the correlation between the two (the best
// linear prediction of a variable by another of the same variance is the correlation times it).
// Between neighbouring voxels (26-neighbourhood) of the mask it is taken to be
//
//     16^-(l / 20 mm)^2,    l^2 = d^2 + (20 mm (t1 - t2) / range)^2
//
// with d their distance, t their values in the correlation template and range that of the template
// in the mask. In uniform tissue it is thus a Gaussian of 20 mm FWHM, which is the autocorrelation
// of maps with a smoothness of 14 mm (sqrt(2) times as wide as the smoothing that produces it:
// Kiebel et al. 1999, NeuroImage 10:756) and the FWHM that the dialogs begin with; and between the
// ends of the template's range it is 1/16 or less, whatever the template's units. It does not
// depend on the FWHM, so that with an anisotropy of 1 the FWHM has no effect.
//
// For voxels farther away the correlation is that along the best path: l is summed along the
// shortest one (the distance on a landscape as high as the template: Toivanen 1996, Pattern
// Recognition Letters 17:437). Paths do not leave the mask, so that an effect does not jump over a
// gap in it.
//
// Paths that can only turn by 45 degrees are up to 12.8 % longer than a straight line even in
// uniform tissue (Borgefors 1984, Computer Vision, Graphics, and Image Processing 27:321), by an
// amount F that is known for each pair of voxels. Without a correction an anisotropy of 1 would
// make kernels narrower, and not round, where the template has nothing to say. So a path's length
// counts relative to F: with E the straight distance from the peak, C that from its voxel to the
// other and L the length of the path between the two, the distance along the tissue is
//
//     T = E + C (L / F - 1),
//
// the straight distance plus the detour; it is E in uniform convex tissue, and symmetric between
// voxels. A peak's voxel is the one in the mask with the closest centre (of equally close ones, the
// first in the grid's order), so that peaks outside the mask reach into it as far as their kernels
// do.
//
// The anisotropy a leads from the kernel of peak_map.h to that one:
//
//     K = 16^-u^2,    u = (1 - a) E / FWHM + a min(T / 20 mm, r)
//
// with r = 1.27, where K ends as in peak_map.h (u < r). For a = 0 it is a Gaussian of the FWHM;
// neither this unit nor a template is then used. u changes continuously with a also where no path
// leads, and with a FWHM of 20 mm or more it never falls as a rises. With a narrower one the kernel
// gets wider along uniform tissue: 1 / width = (1 - a) / FWHM + a / 20 mm.

#include <cstdint>
#include <span>
#include <vector>

#include "engine/images/mask.h"
#include "engine/maps/maps_layer.h"
#include "engine/maps/path_box.h"
#include "engine/maps/peak_map.h"

namespace kvo::maps {

/// The FWHM of the kernel in uniform tissue with full anisotropy, whatever FWHM is asked for.
inline constexpr double tissue_fwhm_mm = 20;

/// The FWHM of the kernel without anisotropy that reaches as far as the one with it can.
double reaching_fwhm(double fwhm_mm, double anisotropy);

/// How effects spread in the voxels of a mask, which must outlive it.
class PathMap {
 public:
  /// `correlation` holds the template's values in the voxels of the mask; 0 < anisotropy <= 1.
  PathMap(const Mask& mask, std::span<const float> correlation, double fwhm_mm, double anisotropy);

  /// Consecutive voxels of the mask.
  struct Run {
    std::size_t begin, end;
  };

  /// Working space for one thread, and its results.
  struct Room {
    explicit Room(const PathMap& map);
    std::vector<Run> runs;  ///< the voxels that a kernel may reach; g is 0 in all others
    std::vector<float> g;   ///< of the voxels in the runs; meaningless in others

   private:
    friend class PathMap;
    /// Voxels of a row of the grid.
    struct Stretch {
      int first = 0, end = 0;
    };
    PathBox::Room paths;
    std::vector<float> squared_x, detour;  ///< along a row
    std::vector<float> kernels, effects;   ///< sums, row by row; all zero between calls
    std::vector<Stretch> reached;          ///< of each row; empty between calls
    std::vector<std::size_t> rows;         ///< those that a kernel reaches
  };

  /// Computes g and leaves it in the room, with each peak moved (its offset kept) to the voxel of
  /// the same index in `voxels`.
  void effects(std::span<const PlacedPeak> peaks, std::span<const Voxel> voxels, Room& room) const;

 private:
  struct Closest {
    std::int64_t voxel;  ///< its number in the mask, or -1
    double distance;
  };
  /// The mask's voxels in a row of the grid.
  struct MaskRow {
    std::size_t begin = 0;   ///< the number of its first voxel
    int first = 0, end = 0;  ///< where they are along the row
  };

  [[nodiscard]] Closest closest_voxel(const PlacedPeak& peak, Voxel at) const;
  void add_peak(const PlacedPeak& peak, Voxel at, Room& room) const;
  void add_row(std::size_t row, int first, int end, double squared_yz, double g, Room& room) const;
  void leave_row(std::size_t row, Room& room) const;
  template <typename Visit>
  void for_each_voxel_within(double radius, const PlacedPeak& peak, Voxel at,
                             const Visit& visit) const;

  const Mask& mask_;
  std::vector<std::int32_t> number_;  ///< of each voxel of the grid in the mask, or -1
  std::vector<float> height_;         ///< likewise, or NaN
  std::vector<MaskRow> rows_;
  std::vector<PathBox> boxes_;  ///< by the distance of a peak from where its paths begin
  double anisotropy_, fwhm_, reach_;
};

}  // namespace kvo::maps
