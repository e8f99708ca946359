#include "companions/kvo_core/path_map.h"

#include <algorithm>
#include <cmath>

namespace {

// No step is shorter than a voxel, so that the voxels of one piece of the queue of this width
// cannot shorten each other's paths: they need not be sorted (Dinitz 1978).
constexpr float queue_mm = 2;

bool on_grid(int i, int j, int k) {
  const auto [nx, ny, nz] = mni_grid().size;
  return i >= 0 && i < nx && j >= 0 && j < ny && k >= 0 && k < nz;
}

std::vector<float> landscape(std::span<const float> correlation, double fwhm) {
  const auto [least, most] = std::minmax_element(correlation.begin(), correlation.end());
  const double range = double(*most) - double(*least), low = *least;
  std::vector<float> height;
  height.reserve(correlation.size());
  for (const float value : correlation)
    height.push_back(range > 0 ? float(fwhm * ((value - low) / range)) : 0.0F);
  return height;
}

}  // namespace

PathMap::PathMap(const Mask& mask, std::span<const float> correlation, double fwhm_mm,
                 double anisotropy)
    : mask_(mask),
      height_(landscape(correlation, fwhm_mm)),
      number_(mni_grid().voxels(), -1),
      sigma_(kernel_sigma(fwhm_mm)),
      radius_(kernel_radius(fwhm_mm)),
      anisotropy_(anisotropy) {
  for (std::size_t n = 0; n < mask.size(); ++n) number_[mask.grid_index[n]] = std::int32_t(n);
  first_step_.push_back(0);
  for (std::size_t n = 0; n < mask.size(); ++n) {
    const Voxel from = mask.voxel(n);
    for (int step = 0; step < 27; ++step) {
      const int di = step % 3 - 1, dj = step / 3 % 3 - 1, dk = step / 9 - 1;
      if (step == 13 || !on_grid(from.i + di, from.j + dj, from.k + dk)) continue;
      const std::int32_t to = number_[mni_grid().index(from.i + di, from.j + dj, from.k + dk)];
      if (to < 0) continue;
      const float rise = height_[std::size_t(to)] - height_[n];
      neighbour_.push_back(std::uint32_t(to));
      length_.push_back(std::sqrt(float(4 * (di * di + dj * dj + dk * dk)) + rise * rise));
    }
    first_step_.push_back(std::uint32_t(neighbour_.size()));
  }
}

PathMap::Room::Room(const PathMap& map)
    : kernels(map.mask_.size()),
      effects(map.mask_.size()),
      path(map.mask_.size(), float(map.radius_)),
      queue(std::size_t(map.radius_ / double(queue_mm)) + 1) {}

/// Calls visit(number in the mask, straight distance) for the voxels of the mask that are closer.
template <typename Visit>
void PathMap::for_each_voxel_within(double radius, const PlacedPeak& peak, Voxel at,
                                    const Visit& visit) const {
  const int reach = int(radius / 2) + 1;
  const auto [nx, ny, nz] = mni_grid().size;
  for (int k = std::max(0, at.k - reach); k <= std::min(nz - 1, at.k + reach); ++k) {
    const double dz = (k - at.k) * 2 - peak.offset[2];
    for (int j = std::max(0, at.j - reach); j <= std::min(ny - 1, at.j + reach); ++j) {
      const double dy = (j - at.j) * 2 - peak.offset[1];
      const double left = radius * radius - dz * dz - dy * dy;
      if (left <= 0) continue;
      const std::int32_t* numbers = number_.data() + mni_grid().index(0, j, k);
      for (int i = std::max(0, at.i - reach); i <= std::min(nx - 1, at.i + reach); ++i) {
        const double dx = (i - at.i) * 2 - peak.offset[0];
        if (numbers[i] >= 0 && dx * dx < left)
          visit(std::size_t(numbers[i]), std::sqrt(dx * dx + dy * dy + dz * dz));
      }
    }
  }
}

std::int64_t PathMap::closest_voxel(const PlacedPeak& peak, Voxel at) const {
  // A peak is in the middle half of its voxel's neighbourhood, so its own voxel is the closest.
  if (on_grid(at.i, at.j, at.k) && number_[mni_grid().index(at.i, at.j, at.k)] >= 0)
    return number_[mni_grid().index(at.i, at.j, at.k)];
  std::int64_t closest = -1;
  double least = radius_;
  for_each_voxel_within(radius_, peak, at, [&](std::size_t n, double distance) {
    if (distance >= least) return;
    least = distance;
    closest = std::int64_t(n);
  });
  return closest;
}

void PathMap::find_paths(const PlacedPeak& peak, Voxel at, Room& room) const {
  const std::int64_t closest = closest_voxel(peak, at);
  if (closest < 0) return;
  const auto shorten = [&](std::uint32_t n, float length) {
    if (length >= room.path[n]) return;
    if (room.path[n] == float(radius_)) room.touched.push_back(n);
    room.path[n] = length;
    room.queue[std::size_t(length / queue_mm)].push_back(n);
  };
  const auto start = std::uint32_t(closest);
  const auto from_peak = [&](std::uint32_t n) {
    const Voxel voxel = mask_.voxel(n);
    const double dx = (voxel.i - at.i) * 2 - peak.offset[0];
    const double dy = (voxel.j - at.j) * 2 - peak.offset[1];
    const double dz = (voxel.k - at.k) * 2 - peak.offset[2];
    const double rise = double(height_[n]) - double(height_[start]);
    shorten(n, float(std::sqrt(dx * dx + dy * dy + dz * dz + rise * rise)));
  };
  from_peak(start);
  for (std::uint32_t step = first_step_[start]; step < first_step_[start + 1]; ++step)
    from_peak(neighbour_[step]);
  for (std::size_t piece = 0; piece < room.queue.size(); ++piece) {
    for (const std::uint32_t n : room.queue[piece]) {
      // A path that was shortened out of this piece has been gone on with from its new one.
      const float length = room.path[n];
      if (std::size_t(length / queue_mm) != piece) continue;
      for (std::uint32_t step = first_step_[n]; step < first_step_[n + 1]; ++step)
        shorten(neighbour_[step], length + length_[step]);
    }
    room.queue[piece].clear();
  }
}

void PathMap::add_peak(const PlacedPeak& peak, Voxel at, Room& room) const {
  find_paths(peak, at, room);
  const double exponent = -1 / (2 * sigma_ * sigma_);
  for_each_voxel_within(radius_, peak, at, [&](std::size_t n, double straight) {
    // Rounded, a path along a straight line may come out as a trifle shorter than it.
    const double path = std::max(double(room.path[n]), straight);
    const double distance = (1 - anisotropy_) * straight + anisotropy_ * path;
    if (float(distance) >= float(radius_)) return;
    const double kernel = std::exp(exponent * distance * distance);
    room.kernels[n] += kernel;
    room.effects[n] += kernel * kernel * peak.g;
  });
  for (const std::uint32_t n : room.touched) room.path[n] = float(radius_);
  room.touched.clear();
}

void PathMap::effects(std::span<const PlacedPeak> peaks, std::span<const Voxel> voxels, Room& room,
                      float* g) const {
  for (std::size_t p = 0; p < peaks.size(); ++p) add_peak(peaks[p], voxels[p], room);
  for (std::size_t n = 0; n < mask_.size(); ++n)
    g[n] = room.kernels[n] == 0 ? 0.0F : float(room.effects[n] / room.kernels[n]);
  std::fill(room.kernels.begin(), room.kernels.end(), 0.0);
  std::fill(room.effects.begin(), room.effects.end(), 0.0);
}
