#include "engine/maps/effect_maps.h"

#include <algorithm>
#include <cmath>

namespace kvo::maps {

EffectMaps::EffectMaps(const PpRecord& record, const Mask& mask, std::span<const float> correlation)
    : mask_(mask), fwhm_(reaching_fwhm(record.fwhm, record.anisotropy)) {
  if (record.anisotropy > 0) paths_.emplace(mask, correlation, record.fwhm, record.anisotropy);
}

PeakMap EffectMaps::around(const std::vector<Peak>& peaks) const {
  return PeakMap(fwhm_, peaks);
}

PeakMap EffectMaps::around_reaching(const std::vector<Peak>& peaks) const {
  const PeakMap all = around(peaks);
  std::vector<Peak> reaching;
  for (std::size_t p = 0; p < peaks.size(); ++p)
    if (all.reaches(all.peaks()[p], mask_)) reaching.push_back(peaks[p]);
  return around(reaching);
}

std::vector<float> EffectMaps::map_of(const PeakMap& peaks) const {
  std::vector<Voxel> voxels;
  for (const PlacedPeak& peak : peaks.peaks()) voxels.push_back(peak.voxel);
  std::vector<float> g(mask_.size());
  if (paths_) {
    PathMap::Room room(*paths_);
    paths_->effects(peaks.peaks(), voxels, room);
    for (const auto& [begin, end] : room.runs)
      std::copy(room.g.data() + begin, room.g.data() + end, g.data() + begin);
    return g;
  }
  PeakMap::Plane plane;
  for (std::size_t k = 0; k < mask_.slices(); ++k)
    peaks.effects(voxels, int(k), mask_, plane, g.data() + mask_.slice_begin[k]);
  return g;
}

std::vector<float> effect_map(const Study& study, const StudyImage& image) {
  const double g_of_t = hedges_g(1, study.sample);
  std::vector<float> g;
  g.reserve(image.t.size());
  for (const float t : image.t) g.push_back(std::isnan(t) ? 0 : float(g_of_t * double(t)));
  return g;
}

}  // namespace kvo::maps
