#pragma once

// A study's map of effects under the parameters of preprocessing: from kernels around its peaks, or
// from its image of t statistics.

#include <optional>
#include <span>
#include <vector>

#include "engine/maps/maps_layer.h"
#include "engine/maps/path_map.h"
#include "engine/maps/peak_map.h"
#include "engine/maps/pp_record.h"
#include "engine/studies/study_image.h"

namespace kvo::maps {

/// How the effects of peaks spread in a mask: shared by the maps of all studies. The mask must
/// outlive it.
class EffectMaps {
 public:
  /// `correlation` is the template in the voxels of the mask; it is not used without anisotropy.
  EffectMaps(const PpRecord& record, const Mask& mask, std::span<const float> correlation);

  /// The kernels around a study's peaks.
  [[nodiscard]] PeakMap around(const std::vector<Peak>& peaks) const;
  /// The same without the peaks whose kernels do not reach the mask.
  [[nodiscard]] PeakMap around_reaching(const std::vector<Peak>& peaks) const;
  /// g in the voxels of the mask, with the peaks at their own places.
  [[nodiscard]] std::vector<float> map_of(const PeakMap& peaks) const;

  /// The paths that effects spread along; null without anisotropy, when there are only kernels.
  [[nodiscard]] const PathMap* paths() const { return paths_ ? &*paths_ : nullptr; }

 private:
  const Mask& mask_;
  double fwhm_;  ///< of kernels that reach as far as the effects
  std::optional<PathMap> paths_;
};

/// g in the voxels of the mask that the image was read in. Where it has no data the effect is 0, as
/// it is where no peak reaches.
std::vector<float> effect_map(const Study& study, const StudyImage& image);

}  // namespace kvo::maps
