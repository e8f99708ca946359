#include "engine/results/explored_map.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "engine/base/exists.h"
#include "engine/base/parallel.h"
#include "engine/base/refusal.h"
#include "engine/maps/folder_maps.h"
#include "engine/maps/meta_analysis.h"
#include "engine/maps/pp_record.h"

namespace kvo::results {

namespace {

constexpr float unknown = std::numeric_limits<float>::quiet_NaN();
// Two maps of the whole brain are read of each.
constexpr std::size_t most_images = 60;

/// The map of the grid without what is outside of the mask.
std::vector<float> inside(const Mask& mask, std::span<const float> map) {
  std::vector<float> values(map.size(), unknown);
  for (const std::uint32_t voxel : mask.grid_index) values[voxel] = map[voxel];
  return values;
}

/// What an image says at the peaks of the clusters.
std::vector<ExploredPlace> places_in_image(const PpRecord& record, const std::string& study,
                                           const Mask& mask, std::span<const Cluster> clusters) {
  const std::vector<float> g = read_effects(record, study, mask);
  const std::vector<float> var = read_variances(record, study, mask);
  std::vector<ExploredPlace> places;
  for (const Cluster& cluster : clusters)
    for (const LocalPeak& peak : cluster.peaks) {
      const auto found = std::lower_bound(mask.grid_index.begin(), mask.grid_index.end(),
                                          mni_grid().index(peak.voxel));
      const auto n = std::size_t(found - mask.grid_index.begin());
      const double effect = double(g[n]), half = interval_z * std::sqrt(double(var[n]));
      places.push_back({mm_of(peak.voxel), effect, Interval{effect - half, effect + half}});
    }
  return places;
}

}  // namespace

Explored explored_map(const MapToExplore& map) {
  Explored explored;
  explored.p_name = map.p_name;
  explored.z.assign(mni_grid().voxels(), unknown);
  explored.p = explored.z;
  for (std::size_t n = 0; n < map.mask.size(); ++n) {
    const std::uint32_t voxel = map.mask.grid_index[n];
    explored.z[voxel] = map.z[n];
    explored.p[voxel] = map.p[map.z[n] < 0 ? 1 : 0][voxel];
  }
  if (map.effects != nullptr)
    for (std::size_t n = 0; n < explored.effect.size(); ++n)
      explored.effect[n] = inside(map.mask, (*map.effects)[n]);
  if (const std::string info = map_file(map.name, info_map); path_exists(info))
    explored.info = inside(map.mask, read_on_mni_grid(info).values);
  explored.atlas.assign(map.atlas.begin(), map.atlas.end());
  return explored;
}

void add_image_places(std::vector<ExploredStudy>& studies, const Mask& mask,
                      std::span<const Cluster> clusters) {
  std::vector<ExploredStudy*> images;
  for (ExploredStudy& study : studies)
    if (study.has_image) images.push_back(&study);
  if (images.size() > most_images) return;
  const PpRecord record = read_pp_record();
  in_parallel(images.size(), [&](std::size_t n, std::size_t) {
    try {
      images[n]->places = places_in_image(record, images[n]->name, mask, clusters);
    } catch (const Refusal&) {
      // Maps can be thresholded after those of the studies have changed.
    }
  });
}

}  // namespace kvo::results
