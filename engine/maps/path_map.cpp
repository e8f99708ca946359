#include "engine/maps/path_map.h"

#include <Eigen/Core>
#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "engine/images/gaussian.h"

namespace kvo::maps {

namespace {

using Lanes = Eigen::Array<float, PathBox::lanes, 1>;

// Most peaks lie in the voxel where their paths begin, no farther from its centre than half its
// diagonal. The closer they are, the fewer paths matter; peaks outside the mask are few.
constexpr double peak_distances_mm[] = {0.25, 0.5, 0.75, 1, 1.25, 1.5, 1.75, 4, 8, 16};

/// The distance at which a kernel ends, in units of its FWHM.
double end_of_kernel() {
  return kernel_radius(1);
}

double tissue_radius() {
  return kernel_radius(tissue_fwhm_mm);
}

std::vector<float> landscape(std::span<const float> correlation) {
  const auto [least, most] = std::minmax_element(correlation.begin(), correlation.end());
  const double range = double(*most) - double(*least), low = *least;
  std::vector<float> height;
  height.reserve(correlation.size());
  for (const float value : correlation)
    height.push_back(range > 0 ? float(tissue_fwhm_mm * ((value - low) / range)) : 0.0F);
  return height;
}

/// The length of a row of the grid in memory, where lanes go beyond its end.
std::size_t row_room() {
  return std::size_t(mni_grid().size[0]) + PathBox::lanes;
}
std::size_t grid_rows() {
  return std::size_t(mni_grid().size[1]) * std::size_t(mni_grid().size[2]);
}

}  // namespace

double reaching_fwhm(double fwhm_mm, double anisotropy) {
  if (anisotropy == 1) return tissue_fwhm_mm;
  const double uniform = fwhm_mm / (1 - anisotropy + anisotropy * fwhm_mm / tissue_fwhm_mm);
  // Where no path leads, the kernel of the FWHM still applies.
  return std::max(fwhm_mm, uniform);
}

PathMap::PathMap(const Mask& mask, std::span<const float> correlation, double fwhm_mm,
                 double anisotropy)
    : mask_(mask),
      number_(mni_grid().voxels(), -1),
      height_(mni_grid().voxels(), std::numeric_limits<float>::quiet_NaN()),
      rows_(grid_rows()),
      anisotropy_(anisotropy),
      fwhm_(fwhm_mm),
      reach_(kernel_radius(reaching_fwhm(fwhm_mm, anisotropy))) {
  const std::vector<float> height = landscape(correlation);
  const auto nx = std::size_t(mni_grid().size[0]);
  for (std::size_t n = 0; n < mask.size(); ++n) {
    const std::size_t at = mask.grid_index[n];
    number_[at] = std::int32_t(n);
    height_[at] = height[n];
    MaskRow& row = rows_[at / nx];
    if (row.end == 0) row = {n, int(at % nx), 0};
    row.end = int(at % nx) + 1;
  }
  for (const double distance : peak_distances_mm) boxes_.emplace_back(tissue_radius(), distance);
  boxes_.emplace_back(tissue_radius(), tissue_radius());
}

PathMap::Room::Room(const PathMap& map)
    : g(map.mask_.size()),
      squared_x(row_room()),
      detour(row_room()),
      kernels(grid_rows() * row_room()),
      effects(kernels.size()),
      reached(grid_rows()) {}

/// Calls visit(number in the mask, straight distance) for the voxels of the mask that are closer to
/// the peak than the radius.
template <typename Visit>
void PathMap::for_each_voxel_within(double radius, const PlacedPeak& peak, Voxel at,
                                    const Visit& visit) const {
  const int reach = int(radius / voxel_mm) + 1;
  const auto [nx, ny, nz] = mni_grid().size;
  for (int k = std::max(0, at.k - reach); k <= std::min(nz - 1, at.k + reach); ++k) {
    const double dz = (k - at.k) * voxel_mm - peak.offset[2];
    for (int j = std::max(0, at.j - reach); j <= std::min(ny - 1, at.j + reach); ++j) {
      const double dy = (j - at.j) * voxel_mm - peak.offset[1];
      const double left = radius * radius - dz * dz - dy * dy;
      if (left <= 0) continue;
      const std::int32_t* numbers = number_.data() + mni_grid().index(0, j, k);
      for (int i = std::max(0, at.i - reach); i <= std::min(nx - 1, at.i + reach); ++i) {
        const double dx = (i - at.i) * voxel_mm - peak.offset[0];
        if (numbers[i] >= 0 && dx * dx < left)
          visit(std::size_t(numbers[i]), std::sqrt(dx * dx + dy * dy + dz * dz));
      }
    }
  }
}

PathMap::Closest PathMap::closest_voxel(const PlacedPeak& peak, Voxel at) const {
  Closest closest{-1, tissue_radius()};
  const auto visit = [&](std::size_t n, double distance) {
    if (distance < closest.distance) closest = {std::int64_t(n), distance};
  };
  // The voxel that a peak lies in has the closest centre, within half its diagonal.
  const bool inside = mni_grid().holds(at) && number_[mni_grid().index(at)] >= 0;
  for_each_voxel_within(inside ? voxel_mm : tissue_radius(), peak, at, visit);
  return closest;
}

/// Adds a peak's kernel to the sums of the voxels first <= i < end of a row; the paths to them are
/// in the room.
void PathMap::add_row(std::size_t row, int first, int end, double squared_yz, double g,
                      Room& room) const {
  Room::Stretch& reached = room.reached[row];
  if (reached.end == 0) {
    reached = {first, end};
    room.rows.push_back(row);
  }
  reached = {std::min(reached.first, first), std::max(reached.end, end)};
  const auto direct = float((1 - anisotropy_) / fwhm_), most = float(anisotropy_ * end_of_kernel()),
             along = float(anisotropy_ / tissue_fwhm_mm), height = float(g),
             limit = float(end_of_kernel());
  const double sigma = sigma_of_fwhm(1);
  const auto exponent = float(-1 / (2 * sigma * sigma)), yz = float(squared_yz);
  float* kernels = room.kernels.data() + row * row_room();
  float* effects = room.effects.data() + row * row_room();
  for (int i = first; i < end; i += int(PathBox::lanes)) {
    const Lanes straight = (Eigen::Map<const Lanes>(room.squared_x.data() + i) + yz).sqrt();
    const Lanes detour = Eigen::Map<const Lanes>(room.detour.data() + i);
    const Lanes u = direct * straight + (along * (straight + detour)).min(most);
    if (u.minCoeff() >= limit) continue;
    Lanes kernel = (exponent * u.square()).exp();
    for (Eigen::Index n = 0; n < kernel.size(); ++n) kernel[n] = u[n] < limit ? kernel[n] : 0.0F;
    Eigen::Map<Lanes>(kernels + i) += kernel;
    Eigen::Map<Lanes>(effects + i) += height * kernel.square();
  }
}

void PathMap::add_peak(const PlacedPeak& peak, Voxel at, Room& room) const {
  const Closest start = closest_voxel(peak, at);
  if (start.voxel < 0 && anisotropy_ == 1) return;
  const Voxel from = start.voxel < 0 ? at : mask_.voxel(std::size_t(start.voxel));
  const PathBox& box = *std::find_if(boxes_.begin(), boxes_.end(), [&](const PathBox& each) {
    return start.distance <= each.peak_mm();
  });
  if (start.voxel >= 0)
    box.find_paths(height_, from, room.paths);
  else
    std::fill(room.detour.begin(), room.detour.end(), float(tissue_radius()));
  const auto [nx, ny, nz] = mni_grid().size;
  for (std::size_t i = 0; i < room.squared_x.size(); ++i) {
    const double dx = (int(i) - at.i) * voxel_mm - peak.offset[0];
    room.squared_x[i] = float(dx * dx);
  }
  const int reach = int(reach_ / voxel_mm) + 1;
  for (int k = std::max(0, at.k - reach); k <= std::min(nz - 1, at.k + reach); ++k) {
    const double dz = (k - at.k) * voxel_mm - peak.offset[2];
    for (int j = std::max(0, at.j - reach); j <= std::min(ny - 1, at.j + reach); ++j) {
      const double dy = (j - at.j) * voxel_mm - peak.offset[1];
      const double left = reach_ * reach_ - dz * dz - dy * dy;
      if (left <= 0) continue;
      const double half = std::sqrt(left) / voxel_mm, middle = at.i + peak.offset[0] / voxel_mm;
      const auto row = std::size_t(k) * std::size_t(ny) + std::size_t(j);
      const int first = std::max(rows_[row].first, int(std::floor(middle - half)));
      const int end = std::min(rows_[row].end, int(std::ceil(middle + half)) + 1);
      if (first >= end) continue;
      if (start.voxel >= 0)
        box.detours(room.paths, from, {first, j, k}, std::size_t(end - first),
                    room.detour.data() + first);
      add_row(row, first, end, dy * dy + dz * dz, peak.g, room);
    }
  }
}

/// Turns the sums of a row into g in the voxels that kernels reach, and clears them.
void PathMap::leave_row(std::size_t row, Room& room) const {
  const Room::Stretch reached = std::exchange(room.reached[row], {});
  float* kernels = room.kernels.data() + row * row_room();
  float* effects = room.effects.data() + row * row_room();
  for (int i = reached.first; i < reached.end; i += int(PathBox::lanes)) {
    // Where the sum of kernels is 0, that of the effects is 0 too.
    const Lanes sum = Eigen::Map<const Lanes>(kernels + i).max(std::numeric_limits<float>::min());
    Eigen::Map<Lanes>(effects + i) /= sum;
  }
  const std::int32_t* numbers = number_.data() + row * std::size_t(mni_grid().size[0]);
  Run run{0, 0};
  for (int i = reached.first; i < reached.end; ++i) {
    if (numbers[i] < 0) continue;
    const auto n = std::size_t(numbers[i]);
    if (run.end == 0) run.begin = n;
    run.end = n + 1;
    room.g[n] = effects[i];
  }
  if (run.end > 0) room.runs.push_back(run);
  for (float* sums : {kernels, effects})
    std::fill(sums + reached.first, sums + reached.end + PathBox::lanes, 0.0F);
}

void PathMap::effects(std::span<const PlacedPeak> peaks, std::span<const Voxel> voxels,
                      Room& room) const {
  room.runs.clear();
  for (std::size_t p = 0; p < peaks.size(); ++p) add_peak(peaks[p], voxels[p], room);
  for (const std::size_t row : room.rows) leave_row(row, room);
  room.rows.clear();
}

}  // namespace kvo::maps
