#include "engine/inference/clusters.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <tuple>

#include "engine/base/install.h"
#include "util/q_string.h"
#include "workspace/files/region_labels.h"

namespace kvo::inference {

namespace {

constexpr double least_distance_mm = 8;

double squared_distance_mm(const Voxel& a, const Voxel& b) {
  const double i = a.i - b.i, j = a.j - b.j, k = a.k - b.k;
  return (i * i + j * j + k * k) * voxel_mm * voxel_mm;
}

/// The voxels that can be reached from the first through neighbours that `joins` accepts, itself
/// included, in the order of the grid. Marks them as seen, and skips those already seen.
template <typename Joins>
std::vector<std::uint32_t> reached(std::uint32_t first, std::vector<bool>& seen,
                                   const Joins& joins) {
  seen[first] = true;
  std::vector<std::uint32_t> found =
      connected_voxels(mni_grid(), first, Touch::corners, [&](std::size_t other) {
        if (seen[other] || !joins(other)) return false;
        seen[other] = true;
        return true;
      });
  std::sort(found.begin(), found.end());
  return found;
}

/// The voxel closest to the centre of the plateau.
Voxel middle_of(const std::vector<std::uint32_t>& plateau) {
  Eigen::Vector3d centre = Eigen::Vector3d::Zero();
  const auto place = [](std::uint32_t index) {
    const Voxel at = mni_grid().voxel(index);
    return Eigen::Vector3d(at.i, at.j, at.k);
  };
  for (const std::uint32_t index : plateau) centre += place(index);
  centre /= double(plateau.size());
  const auto farther = [&](std::uint32_t a, std::uint32_t b) {
    return (place(a) - centre).squaredNorm() < (place(b) - centre).squaredNorm();
  };
  return mni_grid().voxel(*std::min_element(plateau.begin(), plateau.end(), farther));
}

/// The local maxima of a cluster in order of falling height, however close they are.
std::vector<LocalPeak> local_maxima(const Cluster& cluster, std::span<const float> z,
                                    std::vector<bool>& seen) {
  const float sign = cluster.positive ? 1.0F : -1.0F;
  std::vector<LocalPeak> peaks;
  for (const std::uint32_t index : cluster.grid_index) {
    if (seen[index]) continue;
    const std::vector<std::uint32_t> plateau =
        reached(index, seen, [&](std::size_t other) { return z[other] == z[index]; });
    bool highest = true;
    for (const std::uint32_t voxel : plateau)
      for_each_neighbour(mni_grid(), voxel, Touch::corners, [&](std::size_t other) {
        highest = highest && sign * z[other] <= sign * z[index];
      });
    if (highest) peaks.push_back({.voxel = middle_of(plateau), .z = z[index]});
  }
  std::stable_sort(peaks.begin(), peaks.end(), [](const LocalPeak& a, const LocalPeak& b) {
    return std::abs(a.z) > std::abs(b.z);
  });
  return peaks;
}

std::vector<LocalPeak> far_apart(const std::vector<LocalPeak>& peaks) {
  std::vector<LocalPeak> kept;
  for (const LocalPeak& peak : peaks)
    if (std::none_of(kept.begin(), kept.end(), [&](const LocalPeak& higher) {
          return squared_distance_mm(peak.voxel, higher.voxel) <
                 least_distance_mm * least_distance_mm;
        }))
      kept.push_back(peak);
  return kept;
}

}  // namespace

std::string region_text(float atlas_value) {
  if (!(atlas_value >= 1)) return outside_atlas;
  Q_string text;
  Q_get_mni_label(text, atlas_value);
  return text.str();
}

std::vector<Cluster> clusters_of(std::span<const float> z) {
  std::vector<Cluster> clusters;
  std::vector<bool> in_cluster(z.size()), on_plateau(z.size());
  for (std::uint32_t index = 0; index < z.size(); ++index) {
    if (in_cluster[index] || z[index] == 0) continue;
    Cluster cluster;
    cluster.positive = z[index] > 0;
    cluster.grid_index = reached(index, in_cluster, [&](std::size_t other) {
      return z[other] != 0 && (z[other] > 0) == cluster.positive;
    });
    cluster.peaks = far_apart(local_maxima(cluster, z, on_plateau));
    clusters.push_back(std::move(cluster));
  }
  const auto rank = [](const Cluster& cluster) {
    return std::tuple(cluster.positive, cluster.voxels(), std::abs(cluster.peaks.front().z));
  };
  std::stable_sort(clusters.begin(), clusters.end(),
                   [&](const Cluster& a, const Cluster& b) { return rank(a) > rank(b); });
  return clusters;
}

void add_p(std::vector<Cluster>& clusters, const BothTails& tails) {
  for (Cluster& cluster : clusters) {
    const TailMaps& tail = cluster.positive ? tails.positive : tails.negative;
    for (LocalPeak& peak : cluster.peaks)
      for (std::size_t kind = 0; kind < tail.size(); ++kind)
        if (!tail[kind].empty()) peak.p[kind] = tail[kind][mni_grid().index(peak.voxel)];
  }
}

void add_effects(std::vector<Cluster>& clusters, const std::array<std::vector<float>, 3>& effects) {
  for (Cluster& cluster : clusters)
    for (LocalPeak& peak : cluster.peaks) {
      const std::size_t index = mni_grid().index(peak.voxel);
      peak.effect = {double(effects[0][index]), double(effects[1][index]),
                     double(effects[2][index])};
    }
}

std::vector<std::size_t> kinds_of_p(std::span<const Cluster> clusters) {
  std::vector<std::size_t> kinds;
  for (std::size_t kind = 0; kind < p_map_kinds.size(); ++kind)
    if (std::any_of(clusters.begin(), clusters.end(), [&](const Cluster& cluster) {
          return cluster.peaks.front().p[kind].has_value();
        }))
      kinds.push_back(kind);
  return kinds;
}

std::vector<float> read_atlas() {
  return read_on_mni_grid(share_path("atlas_aal_frw.nii.gz")).values;
}

void add_regions(std::vector<Cluster>& clusters, std::span<const float> atlas) {
  for (Cluster& cluster : clusters) {
    for (LocalPeak& peak : cluster.peaks)
      peak.region = region_text(atlas[mni_grid().index(peak.voxel)]);
    std::map<int, std::size_t> counts;
    for (const std::uint32_t index : cluster.grid_index)
      ++counts[atlas[index] >= 1 ? int(std::min(atlas[index], 1e6F)) : 0];
    cluster.regions.clear();
    for (const auto& [region, voxels] : counts)
      cluster.regions.push_back({region_text(float(region)), voxels});
    std::stable_sort(
        cluster.regions.begin(), cluster.regions.end(),
        [](const RegionShare& a, const RegionShare& b) { return a.voxels > b.voxels; });
  }
}

}  // namespace kvo::inference
