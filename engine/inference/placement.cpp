#include "engine/inference/placement.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <numeric>

#include "engine/base/exists.h"
#include "engine/base/install.h"
#include "engine/images/gaussian.h"
#include "engine/images/mask.h"

namespace kvo::inference {

namespace {

constexpr const char* tissues[] = {"gray_matter", "white_matter"};
/// Peaks assumed to lie in each kind in proportion to its share of the mask, besides those that do,
/// so that a few peaks do not rule a tissue out.
constexpr double assumed_peaks = 10;
constexpr int tries_of_a_group = 100;

/// For each voxel of the mask the first of the tissues that contains it.
std::vector<std::uint8_t> kinds_of(const Mask& mask) {
  constexpr std::uint8_t others = std::size(tissues);
  std::vector<std::uint8_t> kinds(mask.size(), others);
  for (std::uint8_t tissue = 0; tissue < others; ++tissue) {
    const std::string path = share_path(mask_file(tissues[tissue]));
    // An installation without such a mask does not tell the tissue from others.
    if (!path_exists(path)) continue;
    const Mask of_tissue = read_mask(path);
    for (std::size_t n = 0; n < mask.size(); ++n)
      if (kinds[n] == others && of_tissue.inside[mask.grid_index[n]]) kinds[n] = tissue;
  }
  return kinds;
}

/// Smooths a map of the grid, which is 0 beyond it, with a Gaussian of that sigma in voxels.
void smooth(std::vector<float>& map, double sigma) {
  const int reach = int(std::ceil(radius_in_sigmas * sigma));
  std::vector<double> weights;
  for (int step = 0; step <= reach; ++step) weights.push_back(gaussian(step, sigma));
  std::size_t stride = 1;
  for (const int size : mni_grid().size) {
    const std::vector<float> before = map;
    for (std::size_t v = 0; v < map.size(); ++v) {
      const int at = int(v / stride % std::size_t(size));
      double sum = 0;
      for (int step = std::max(-reach, -at); step <= std::min(reach, size - 1 - at); ++step)
        sum += weights[std::size_t(std::abs(step))] *
               double(before[std::size_t(std::ptrdiff_t(v) + step * std::ptrdiff_t(stride))]);
      map[v] = float(sum);
    }
    stride *= std::size_t(size);
  }
}

bool in_mask(const Mask& mask, const Voxel& at) {
  return mni_grid().holds(at) && mask.inside[mni_grid().index(at)];
}

Voxel moved(const Voxel& at, const Voxel& from, const Voxel& to) {
  return {at.i + to.i - from.i, at.j + to.j - from.j, at.k + to.k - from.k};
}

bool apart(const Voxel& a, const Voxel& b, double distance_mm) {
  const double i = a.i - b.i, j = a.j - b.j, k = a.k - b.k, reach = distance_mm / voxel_mm;
  return i * i + j * j + k * k > reach * reach;
}

}  // namespace

Placement::Placement(const Mask& mask, const std::vector<std::vector<PlacedPeak>>& peaks)
    : mask_(mask) {
  const std::vector<std::uint8_t> kind = kinds_of(mask);
  for (std::size_t n = 0; n < mask.size(); ++n) voxels_[kind[n]].push_back(std::uint32_t(n));
  std::array<double, kinds> counts{};
  for (std::size_t k = 0; k < kinds; ++k)
    counts[k] = assumed_peaks * double(voxels_[k].size()) / double(mask.size());
  for (const std::vector<PlacedPeak>& of_study : peaks)
    for (const PlacedPeak& peak : of_study) {
      if (!in_mask(mask, peak.voxel)) continue;
      const auto at = std::lower_bound(mask.grid_index.begin(), mask.grid_index.end(),
                                       std::uint32_t(mni_grid().index(peak.voxel)));
      counts[kind[std::size_t(at - mask.grid_index.begin())]] += 1;
    }
  const double all = std::accumulate(counts.begin(), counts.end(), 0.0);
  double sum = 0;
  for (std::size_t k = 0; k < kinds; ++k) {
    sum += counts[k] / all;
    shares_[k] = std::uint32_t(std::min(sum, 1.0) * double(UINT32_MAX));
  }
}

Voxel Placement::draw(RandomStream& random) const {
  const std::uint32_t which = random.below(UINT32_MAX);
  std::size_t kind = 0;
  while (kind + 1 < kinds && (which >= shares_[kind] || voxels_[kind].empty())) ++kind;
  while (voxels_[kind].empty()) --kind;
  return mask_.voxel(voxels_[kind][random.below(std::uint32_t(voxels_[kind].size()))]);
}

std::vector<float> Placement::mean_square_of_kernel(double fwhm_mm) const {
  std::vector<float> density(mni_grid().voxels());
  for (std::size_t kind = 0; kind < kinds; ++kind) {
    const std::uint32_t share = shares_[kind] - (kind == 0 ? 0 : shares_[kind - 1]);
    for (const std::uint32_t n : voxels_[kind])
      density[mask_.grid_index[n]] = float(double(share) / double(voxels_[kind].size()));
  }
  // The square of a Gaussian is a narrower one.
  smooth(density, sigma_of_fwhm(fwhm_mm) / std::sqrt(2.0) / voxel_mm);
  std::vector<float> squares;
  double sum = 0;
  for (const std::uint32_t index : mask_.grid_index) {
    squares.push_back(density[index]);
    sum += double(density[index]);
  }
  for (float& square : squares) square = float(double(square) * double(squares.size()) / sum);
  return squares;
}

PeakGroups peak_groups(const std::vector<PlacedPeak>& peaks, double distance_mm) {
  std::vector<std::vector<std::size_t>> groups;
  std::vector<bool> grouped(peaks.size());
  for (std::size_t first = 0; first < peaks.size(); ++first) {
    if (grouped[first]) continue;
    grouped[first] = true;
    std::vector<std::size_t> group{first};
    for (std::size_t next = 0; next < group.size(); ++next)
      for (std::size_t other = 0; other < peaks.size(); ++other) {
        if (grouped[other]) continue;
        if (apart(peaks[group[next]].voxel, peaks[other].voxel, distance_mm)) continue;
        grouped[other] = true;
        group.push_back(other);
      }
    groups.push_back(std::move(group));
  }
  return {std::move(groups), distance_mm};
}

void place_groups(const std::vector<PlacedPeak>& peaks, const PeakGroups& groups, const Mask& mask,
                  const Placement& placement, RandomStream& random, std::vector<Voxel>& voxels) {
  voxels.resize(peaks.size());
  std::vector<Voxel> placed, moved_group;
  for (const std::vector<std::size_t>& group : groups.groups) {
    bool fits = false, lonely = false;
    for (int again = 0; again < tries_of_a_group && !lonely; ++again) {
      const Voxel from = peaks[group[random.below(std::uint32_t(group.size()))]].voxel;
      const Voxel to = placement.draw(random);
      moved_group.clear();
      for (const std::size_t p : group) moved_group.push_back(moved(peaks[p].voxel, from, to));
      if (!std::all_of(moved_group.begin(), moved_group.end(),
                       [&](const Voxel& at) { return in_mask(mask, at); }))
        continue;
      fits = true;
      lonely = std::all_of(moved_group.begin(), moved_group.end(), [&](const Voxel& at) {
        return std::all_of(placed.begin(), placed.end(), [&](const Voxel& other) {
          return apart(at, other, groups.distance_mm);
        });
      });
      for (std::size_t i = 0; i < group.size(); ++i) voxels[group[i]] = moved_group[i];
    }
    if (!fits)
      for (const std::size_t p : group) voxels[p] = placement.draw(random);
    for (const std::size_t p : group) placed.push_back(voxels[p]);
  }
}

}  // namespace kvo::inference
