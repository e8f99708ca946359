#include "engine/maps/path_box.h"

#include <emmintrin.h>

#include <Eigen/Core>
#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdlib>
#include <limits>

namespace kvo::maps {

namespace {

// No step is shorter than a voxel. With pieces of the queue this wide, a path that extends one in a
// piece therefore belongs in a later piece, in floating point too, since sums and halves are
// rounded monotonically and whole numbers are exact: the voxels of a piece need not be sorted, and
// their list does not grow while it is read (Dinitz 1978).
constexpr float queue_mm = voxel_mm;

constexpr std::uint8_t in_no_piece = 255;

/// Limits are too high by this much, so that no path is lost to rounding.
constexpr double slack_mm = 1e-4;

constexpr std::size_t row_cells = 3;
constexpr std::uint8_t no_step = 13;  ///< the middle of the middle row, where paths begin

using Lanes = Eigen::Array<float, PathBox::lanes, 1>;

/// The length of the shortest path in uniform tissue to a cell this far away.
double uniform_path(const Voxel& apart) {
  const int di = std::abs(apart.i), dj = std::abs(apart.j), dk = std::abs(apart.k);
  const int longest = std::max({di, dj, dk}), shortest = std::min({di, dj, dk});
  const int middle = di + dj + dk - longest - shortest;
  return voxel_mm *
         (longest + (std::sqrt(2.0) - 1) * middle + (std::sqrt(3.0) - std::sqrt(2.0)) * shortest);
}

double straight_path(const Voxel& apart) {
  return voxel_mm * std::sqrt(double(apart.i * apart.i + apart.j * apart.j + apart.k * apart.k));
}

}  // namespace

bool PathBox::at_surface(const Voxel& at) const {
  const int last = 2 * half_;
  return std::min({at.i, at.j, at.k}) == 0 || std::max({at.i, at.j, at.k}) == last;
}

PathBox::PathBox(double radius_mm, double peak_mm)
    : radius_mm_(radius_mm),
      peak_mm_(peak_mm),
      half_(int(std::ceil((radius_mm + peak_mm + slack_mm) / voxel_mm))),
      edge_(2 * std::size_t(half_) + 1) {
  for (int row = 0; row < int(rows_.size()); ++row) {
    const int dj = row % 3 - 1, dk = row / 3 - 1, edge = int(edge_);
    const auto mm = [&](int di) {
      return float(voxel_mm * voxel_mm * (di * di + dj * dj + dk * dk));
    };
    rows_[std::size_t(row)] = {(dk * edge + dj) * edge - 1,
                               {mm(-1), mm(0), mm(1), std::numeric_limits<float>::infinity()}};
  }
  find_limits(radius_mm + peak_mm + slack_mm);
}

template <typename Visit>
void PathBox::for_each_inner_cell(const Visit& visit) const {
  const int last = int(edge_) - 2;
  for (int k = 1; k <= last; ++k)
    for (int j = 1; j <= last; ++j)
      for (int i = 1; i <= last; ++i) visit(cell(i, j, k));
}

/// The highest limit among the cells that some of the 27 steps lead to, less the length of the
/// step.
double PathBox::best_beyond(const Limits& limits, std::size_t at, int first, int end) const {
  double best = 0;
  for (int step = first; step < end; ++step) {
    if (step == no_step) continue;
    const Voxel by{step % 3 - 1, step / 3 % 3 - 1, step / 9 - 1};
    const Row& row = rows_[std::size_t(step) / row_cells];
    const auto to = std::size_t(std::ptrdiff_t(at) + row.offset + step % 3);
    best = std::max(best, limits[to] - straight_path(by));
  }
  return best;
}

/// A path of length L to a cell matters if its distance along the tissue, T of path_map.h, is below
/// the radius: since E is at least C less the peak's distance, if L < F / C (radius + distance). It
/// also matters if, by steps no longer than in uniform tissue, it reaches another cell below the
/// limit there; in a cube two passes through all cells find the best (Borgefors 1984).
void PathBox::find_limits(double reach_mm) {
  const std::size_t cells = edge_ * edge_ * edge_;
  Limits limits(cells);
  for (std::vector<float>* each : {&straight_, &shortening_}) each->resize(cells + lanes);
  for (std::size_t c = 0; c < cells; ++c) {
    const Voxel at{int(c % edge_), int(c / edge_ % edge_), int(c / (edge_ * edge_))};
    const Voxel apart{at.i - half_, at.j - half_, at.k - half_};
    const double straight = straight_path(apart), uniform = uniform_path(apart);
    const double share = uniform > 0 ? straight / uniform : 1;
    straight_[c] = float(straight);
    shortening_[c] = float(share);
    limits[c] = at_surface(at) ? 0 : reach_mm / share;
  }
  for_each_inner_cell(
      [&](std::size_t c) { limits[c] = std::max(limits[c], best_beyond(limits, c, 0, no_step)); });
  const std::size_t last = cells - 1;
  for_each_inner_cell([&](std::size_t c) {
    limits[last - c] = std::max(limits[last - c], best_beyond(limits, last - c, no_step, 27));
  });
  limit_.assign(limits.begin(), limits.end());
  onwards_.resize(cells);
  for_each_inner_cell([&](std::size_t c) { onwards_[c] = float(best_beyond(limits, c, 0, 27)); });
  pieces_ = std::size_t(*std::max_element(limits.begin(), limits.end()) / voxel_mm) + 1;
}

/// Copies the heights around a voxel into the room, and starts without any paths there.
void PathBox::enter(std::span<const float> height, const Voxel& from, Room& room) const {
  const std::size_t cells = limit_.size();
  if (room.height.size() < cells + lanes) {
    room.height.resize(cells + lanes);
    room.length.resize(cells + lanes);
  }
  room.queued.assign(cells, in_no_piece);
  room.queue.resize(std::max(room.queue.size(), pieces_));
  std::copy(limit_.begin(), limit_.end(), room.length.begin());
  std::fill_n(room.height.begin(), cells, std::numeric_limits<float>::quiet_NaN());
  const Grid& grid = mni_grid();
  const Voxel low{from.i - half_, from.j - half_, from.k - half_};
  const auto end = [&](int axis, int least) {
    return std::min(grid.size[std::size_t(axis)] - least, int(edge_));
  };
  const int first = std::max(0, -low.i), count = end(0, low.i) - first;
  for (int k = std::max(0, -low.k); k < end(2, low.k); ++k)
    for (int j = std::max(0, -low.j); j < end(1, low.j); ++j)
      std::copy_n(height.data() + grid.index(low.i + first, low.j + j, low.k + k), count,
                  room.height.data() + cell(first, j, k));
}

/// Stores the lengths of the paths that go on from a cell, four for each row of steps. Returns a
/// bit for each that is shorter than the best so far.
inline std::uint64_t PathBox::shorter_paths(const Room& room, std::size_t at,
                                            float* lengths) const {
  const float *height = room.height.data() + at, *length = room.length.data() + at;
  const __m128 here = _mm_set1_ps(*height), so_far = _mm_set1_ps(*length);
  std::uint64_t shorter = 0;
  for (std::size_t r = 0; r < rows_.size(); ++r) {
    const Row& row = rows_[r];
    const __m128 rise = _mm_sub_ps(_mm_loadu_ps(height + row.offset), here);
    const __m128 squared = _mm_add_ps(_mm_loadu_ps(row.squared_mm.data()), _mm_mul_ps(rise, rise));
    const __m128 reached = _mm_add_ps(so_far, _mm_sqrt_ps(squared));
    _mm_storeu_ps(lengths + 4 * r, reached);
    const __m128 less = _mm_cmplt_ps(reached, _mm_loadu_ps(length + row.offset));
    shorter |= std::uint64_t(unsigned(_mm_movemask_ps(less))) << 4 * r;
  }
  return shorter;
}

void PathBox::find_paths(std::span<const float> height, const Voxel& from, Room& room) const {
  enter(height, from, room);
  std::array<float, 36> lengths;
  const auto start = std::uint32_t(cell(half_, half_, half_));
  room.length[start] = 0;
  room.queued[start] = 0;
  room.queue[0].push_back(start);
  for (std::size_t piece = 0; piece < pieces_; ++piece) {
    for (const std::uint32_t at : room.queue[piece]) {
      // A path that was shortened out of this piece was already extended from its new one.
      if (room.queued[at] != piece) continue;
      for (std::uint64_t left = shorter_paths(room, at, lengths.data()); left != 0;
           left &= left - 1) {
        const auto n = std::size_t(std::countr_zero(left));
        const auto to = std::uint32_t(std::int32_t(at) + rows_[n / 4].offset + std::int32_t(n % 4));
        const float length = lengths[n];
        room.length[to] = length;
        const auto next = std::uint8_t(length / queue_mm);
        if (length >= onwards_[to] || room.queued[to] == next) continue;
        room.queued[to] = next;
        room.queue[next].push_back(to);
      }
    }
    room.queue[piece].clear();
  }
}

void PathBox::detours(const Room& room, const Voxel& from, const Voxel& first, std::size_t count,
                      float* mm) const {
  const int edge = int(edge_), j = first.j - from.j + half_, k = first.k - from.k + half_;
  const int i = first.i - from.i + half_, end = i + int(count);
  const int inner = std::max(i, 0), inner_end = std::min(end, edge);
  if (j < 0 || j >= edge || k < 0 || k >= edge || inner >= inner_end) {
    std::fill_n(mm, count, float(radius_mm_));
    return;
  }
  std::fill_n(mm, inner - i, float(radius_mm_));
  const std::size_t begin = cell(inner, j, k);
  const auto of = [&](const std::vector<float>& values, std::size_t n) {
    return Eigen::Map<const Lanes>(values.data() + begin + n);
  };
  for (std::size_t n = 0; n < std::size_t(inner_end - inner); n += lanes)
    // Rounding may make a sum of steps slightly too short.
    Eigen::Map<Lanes>(mm + (inner - i) + n) =
        (of(room.length, n) * of(shortening_, n) - of(straight_, n)).max(0.0F);
  std::fill_n(mm + (inner_end - i), end - inner_end, float(radius_mm_));
}

}  // namespace kvo::maps
