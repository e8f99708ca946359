#include "engine/maps/path_map.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdlib>
#include <limits>

#include "engine/base/vectors.h"
#include "engine/images/gaussian.h"

namespace kvo::maps {

namespace {

constexpr float no_path = std::numeric_limits<float>::infinity();

// No step is shorter than a voxel. A path that goes on from one whose length is in a piece of the
// queue of this width therefore belongs into a later piece, in floating point too, since sums and
// halves are rounded monotonically and whole numbers are exact: the voxels of a piece need not be
// sorted, and their list does not grow while it is read (Dinitz 1978).
constexpr float queue_mm = voxel_mm;

// The longest that a path in uniform tissue is for its straight distance, attained in the direction
// of the vector whose length this is: along an axis, a face's diagonal and a voxel's diagonal.
const double longest_uniform_path =
    std::hypot(1.0, std::sqrt(2.0) - 1, std::sqrt(3.0) - std::sqrt(2.0));

/// The distance at which a kernel ends, in its FWHM.
double end_of_kernel() {
  return kernel_radius(1);
}

double tissue_radius() {
  return kernel_radius(tissue_fwhm_mm);
}

/// The longest path that can matter to a peak this far from where it starts.
double longest_path(double peak_distance) {
  return longest_uniform_path * (tissue_radius() + peak_distance);
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

/// Places are the voxels of the grid with one more on each side.
std::size_t place_of(const Voxel& voxel) {
  const auto row = std::size_t(mni_grid().size[0]) + 2, rows = std::size_t(mni_grid().size[1]) + 2;
  const int i = voxel.i + 1, j = voxel.j + 1, k = voxel.k + 1;
  return (std::size_t(k) * rows + std::size_t(j)) * row + std::size_t(i);
}
std::size_t places() {
  return place_of({mni_grid().size[0], mni_grid().size[1], mni_grid().size[2]}) + 1;
}

/// By how many mm a path of that length between two voxels is too long, their distance being
/// straight and the template uniform when it is 0.
double excess(double path, Voxel from, Voxel to) {
  const int di = std::abs(to.i - from.i), dj = std::abs(to.j - from.j),
            dk = std::abs(to.k - from.k);
  const int longest = std::max({di, dj, dk}), shortest = std::min({di, dj, dk});
  if (longest == 0) return 0;
  const int middle = di + dj + dk - longest - shortest;
  const double uniform = voxel_mm * (longest + (std::sqrt(2.0) - 1) * middle +
                                     (std::sqrt(3.0) - std::sqrt(2.0)) * shortest);
  const double straight = voxel_mm * std::sqrt(double(di * di + dj * dj + dk * dk));
  // By rounding, a sum of steps may come out a trifle shorter.
  return std::max(0.0, straight * (path / uniform - 1));
}

/// Those to the 26 voxels that touch, and at the end the one to where a path begins.
std::vector<Voxel> directions_of_steps() {
  std::vector<Voxel> directions;
  for (int k = -1; k <= 1; ++k)
    for (int j = -1; j <= 1; ++j)
      for (int i = -1; i <= 1; ++i)
        if (i != 0 || j != 0 || k != 0) directions.push_back({i, j, k});
  directions.push_back({0, 0, 0});
  return directions;
}

/// The steps that may follow one on a shortest path: those away from the place where that one was
/// begun. To a place that touches it, it is shorter to go at once, by the triangle inequality, as
/// lengths are straight distances between places with their heights.
std::vector<std::uint8_t> steps_after(const Voxel& step, const std::vector<Voxel>& directions) {
  std::vector<std::uint8_t> next;
  for (std::uint8_t s = 0; s + 1U < directions.size(); ++s) {
    const auto [i, j, k] = directions[s];
    const bool begins = step.i == 0 && step.j == 0 && step.k == 0;
    const bool away =
        std::max({std::abs(step.i + i), std::abs(step.j + j), std::abs(step.k + k)}) > 1;
    if (begins || away) next.push_back(s);
  }
  return next;
}

}  // namespace

double reaching_fwhm(double fwhm_mm, double anisotropy) {
  if (anisotropy == 1) return tissue_fwhm_mm;
  const double uniform = fwhm_mm / (1 - anisotropy + anisotropy * fwhm_mm / tissue_fwhm_mm);
  // Where no path leads the kernel of the FWHM goes on.
  return std::max(fwhm_mm, uniform);
}

PathMap::PathMap(const Mask& mask, std::span<const float> correlation, double fwhm_mm,
                 double anisotropy)
    : mask_(mask),
      number_(mni_grid().voxels(), -1),
      anisotropy_(anisotropy),
      fwhm_(fwhm_mm),
      reach_(kernel_radius(reaching_fwhm(fwhm_mm, anisotropy))) {
  const std::vector<float> height = landscape(correlation);
  height_.resize(places(), std::numeric_limits<float>::quiet_NaN());
  for (std::size_t n = 0; n < mask.size(); ++n) {
    number_[mask.grid_index[n]] = std::int32_t(n);
    height_[place_of(mask.voxel(n))] = height[n];
  }
  const std::vector<Voxel> directions = directions_of_steps();
  const auto middle = std::int32_t(place_of({1, 1, 1}));
  for (std::size_t s = 0; s < directions.size(); ++s)
    for (const std::uint8_t step : steps_after(directions[s], directions)) {
      NextSteps& next = next_[s];
      const auto [i, j, k] = directions[step];
      next.step[next.count] = step;
      next.offset[next.count] = std::int32_t(place_of({i + 1, j + 1, k + 1})) - middle;
      next.squared_mm[next.count] = float(voxel_mm * voxel_mm * (i * i + j * j + k * k));
      ++next.count;
    }
}

PathMap::Room::Room(const PathMap& map)
    : sums(map.mask_.size()),
      path(places(), no_path),
      settled(places()),
      last_step(places()),
      queue(std::size_t(longest_path(tissue_radius()) / double(queue_mm)) + 1) {}

/// Calls visit(number in the mask, voxel, straight distance) for the voxels of the mask that are
/// closer to the peak.
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
          visit(std::size_t(numbers[i]), Voxel{i, j, k}, std::sqrt(dx * dx + dy * dy + dz * dz));
      }
    }
  }
}

PathMap::Closest PathMap::closest_voxel(const PlacedPeak& peak, Voxel at) const {
  Closest closest{-1, tissue_radius()};
  const auto visit = [&](std::size_t n, Voxel, double distance) {
    if (distance < closest.distance) closest = {std::int64_t(n), distance};
  };
  // The voxel that a peak lies in has the closest centre, which is within half of its diagonal.
  const bool inside = mni_grid().holds(at) && number_[mni_grid().index(at)] >= 0;
  for_each_voxel_within(inside ? voxel_mm : tissue_radius(), peak, at, visit);
  return closest;
}

namespace {

/// The lengths of the paths that go on by each of so many steps from a place, the heights and paths
/// of whose neighbours are told. Returns a bit for each that is shorter than what there is and the
/// limit.
WIDEST_VECTORS std::uint32_t shorter_steps(std::size_t count, const std::int32_t* __restrict offset,
                                           const float* __restrict squared_mm,
                                           const float* __restrict height,
                                           const float* __restrict path, float limit,
                                           float* __restrict lengths) {
  constexpr std::size_t together = 8;
  const std::size_t filled = (count + together - 1) / together * together;
  const float here = *height, so_far = *path;
  std::uint32_t shorter = 0;
  INDEPENDENT
  for (std::size_t n = 0; n < filled; ++n) {
    const float rise = height[offset[n]] - here, before = path[offset[n]];
    const float length = so_far + std::sqrt(squared_mm[n] + rise * rise);
    lengths[n] = length;
    shorter |= length < std::min(before, limit) ? 1U << n : 0U;
  }
  return shorter;
}

}  // namespace

void PathMap::find_paths(const Closest& start, Room& room) const {
  if (start.voxel < 0) return;
  std::array<float, 32> lengths;
  const auto limit = float(longest_path(start.distance));
  const auto shorten = [&](std::uint32_t place, float length, std::uint8_t step) {
    if (room.path[place] == no_path) room.found.push_back(place);
    room.path[place] = length;
    room.last_step[place] = step;
    // No step further would end below the limit.
    if (length + queue_mm < limit) room.queue[std::size_t(length / queue_mm)].push_back(place);
  };
  shorten(std::uint32_t(place_of(mask_.voxel(std::size_t(start.voxel)))), 0,
          std::uint8_t(next_.size() - 1));
  for (std::size_t piece = 0; piece < room.queue.size(); ++piece) {
    for (const std::uint32_t place : room.queue[piece]) {
      // A path that was shortened out of this piece has been gone on with from its new one.
      const float length = room.path[place];
      if (std::size_t(length / queue_mm) != piece || room.settled[place] != 0) continue;
      room.settled[place] = 1;
      const NextSteps& next = next_[room.last_step[place]];
      const std::uint32_t shorter =
          shorter_steps(next.count, next.offset.data(), next.squared_mm.data(),
                        height_.data() + place, room.path.data() + place, limit, lengths.data());
      for (std::uint32_t left = shorter; left != 0; left &= left - 1) {
        const auto n = std::size_t(std::countr_zero(left));
        shorten(place + std::uint32_t(next.offset[n]), lengths[n], next.step[n]);
      }
    }
    room.queue[piece].clear();
  }
}

void PathMap::add_peak(const PlacedPeak& peak, Voxel at, Room& room) const {
  const Closest start = closest_voxel(peak, at);
  find_paths(start, room);
  const Voxel from = start.voxel < 0 ? at : mask_.voxel(std::size_t(start.voxel));
  const double sigma = sigma_of_fwhm(1), exponent = -1 / (2 * sigma * sigma);
  for_each_voxel_within(reach_, peak, at, [&](std::size_t n, Voxel voxel, double straight) {
    double u = end_of_kernel();
    if (const float path = room.path[place_of(voxel)]; path != no_path)
      u = std::min(u, (straight + excess(double(path), from, voxel)) / tissue_fwhm_mm);
    u = (1 - anisotropy_) * straight / fwhm_ + anisotropy_ * u;
    if (u >= end_of_kernel()) return;
    const double kernel = std::exp(exponent * u * u);
    if (room.sums[n].kernels == 0) room.summed.push_back(std::uint32_t(n));
    room.sums[n].kernels += kernel;
    room.sums[n].effects += kernel * kernel * peak.g;
  });
  for (const std::uint32_t place : room.found) {
    room.path[place] = no_path;
    room.settled[place] = 0;
  }
  room.found.clear();
}

void PathMap::effects(std::span<const PlacedPeak> peaks, std::span<const Voxel> voxels, Room& room,
                      float* g) const {
  for (std::size_t p = 0; p < peaks.size(); ++p) add_peak(peaks[p], voxels[p], room);
  std::fill(g, g + mask_.size(), 0.0F);
  for (const std::uint32_t n : room.summed) {
    g[n] = float(room.sums[n].effects / room.sums[n].kernels);
    room.sums[n] = {};
  }
  room.summed.clear();
}

}  // namespace kvo::maps
