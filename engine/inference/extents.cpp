#include "engine/inference/extents.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <utility>

namespace kvo::inference {

namespace {

/// Sorts by the upper half of the numbers, stably.
void radix_sort(std::vector<std::uint64_t>& numbers, std::vector<std::uint64_t>& room) {
  constexpr unsigned digits = 3, digit_bits = 11, low = 32;
  constexpr std::uint64_t mask = (1U << digit_bits) - 1;
  std::array<std::array<std::uint32_t, 1U << digit_bits>, digits> begins{};
  const auto digit = [&](std::uint64_t number, unsigned d) {
    return std::size_t(number >> (low + d * digit_bits) & mask);
  };
  for (const std::uint64_t number : numbers)
    for (unsigned d = 0; d < digits; ++d) ++begins[d][digit(number, d)];
  room.resize(numbers.size());
  for (unsigned d = 0; d < digits; ++d) {
    std::uint32_t begin = 0;
    for (std::uint32_t& count : begins[d]) begin += std::exchange(count, begin);
    for (const std::uint64_t number : numbers) room[begins[d][digit(number, d)]++] = number;
    numbers.swap(room);
  }
}

/// Continues the integral of a cluster down to the height.
template <typename Node>
void integrate(Node& root, float height) {
  const double h = height, from = root.level;
  const double more = std::sqrt(double(root.size)) * (from * from * from - h * h * h) / 3;
  root.integral += more;
  root.best += more;
  root.level = height;
}

}  // namespace

Extents::Extents(const Mask& mask) {
  // One voxel of padding on each side, so that each voxel has all its neighbours.
  const auto [nx, ny, nz] = mni_grid().size;
  const std::int32_t row = nx + 2, plane = row * (ny + 2);
  for (std::size_t n = 0; n < mask.size(); ++n) {
    const Voxel at = mask.voxel(n);
    place_.push_back((at.k + 1) * plane + (at.j + 1) * row + at.i + 1);
  }
  std::size_t step = 0;
  for (int dk = -1; dk <= 1; ++dk)
    for (int dj = -1; dj <= 1; ++dj)
      for (int di = -1; di <= 1; ++di)
        if (di != 0 || dj != 0 || dk != 0) steps_[step++] = dk * plane + dj * row + di;
  rank_.resize(std::size_t(plane) * std::size_t(nz + 2), none);
}

std::int32_t Extents::root_of(std::int32_t node) {
  while (true) {
    Node& at = nodes_[std::size_t(node)];
    if (at.parent == node) return node;
    const Node& parent = nodes_[std::size_t(at.parent)];
    if (parent.parent == at.parent) return at.parent;
    at.integral += parent.integral;
    at.parent = parent.parent;
    node = at.parent;
  }
}

std::int32_t Extents::merge(std::int32_t a, std::int32_t b) {
  if (nodes_[std::size_t(a)].size < nodes_[std::size_t(b)].size) std::swap(a, b);
  Node &root = nodes_[std::size_t(a)], &other = nodes_[std::size_t(b)];
  other.parent = a;
  other.integral -= root.integral;
  root.size += other.size;
  root.best = std::max(root.best, other.best);
  return a;
}

/// Enters the voxels above `least`, which must not be below 0, and returns the size of the largest
/// cluster above the threshold.
float Extents::grow(std::span<const float> map, float sign, float least, float threshold) {
  ranked_.clear();
  for (std::size_t n = 0; n < map.size(); ++n) {
    const float height = sign * map[n];
    // The bits of positive numbers are in the order of the numbers.
    if (height > least)
      ranked_.push_back(std::uint64_t(~std::bit_cast<std::uint32_t>(height)) << 32 | n);
  }
  radix_sort(ranked_, sorted_);
  nodes_.resize(ranked_.size());
  std::int32_t largest = 0;
  for (std::size_t rank = 0; rank < ranked_.size(); ++rank) {
    const std::int32_t place = place_[std::uint32_t(ranked_[rank])];
    const float height = sign * map[std::uint32_t(ranked_[rank])];
    auto root = std::int32_t(rank);
    nodes_[rank] = {.parent = root, .size = 1, .level = height, .best = 0, .integral = 0};
    rank_[std::size_t(place)] = root;
    // Without branches, because they would be unpredictable.
    std::array<std::int32_t, 26> neighbours;
    std::size_t count = 0;
    for (const std::int32_t step : steps_) {
      neighbours[count] = rank_[std::size_t(std::ptrdiff_t(place) + step)];
      count += neighbours[count] == none ? 0 : 1;
    }
    for (std::size_t n = 0; n < count; ++n) {
      if (nodes_[std::size_t(neighbours[n])].parent == root) continue;
      const std::int32_t other = root_of(neighbours[n]);
      if (other == root) continue;
      integrate(nodes_[std::size_t(other)], height);
      root = merge(root, other);
    }
    if (height > threshold) largest = std::max(largest, nodes_[std::size_t(root)].size);
  }
  return float(largest);
}

/// Integrates all clusters down to 0.
void Extents::finish_roots() {
  for (std::size_t rank = 0; rank < ranked_.size(); ++rank)
    if (nodes_[rank].parent == std::int32_t(rank)) integrate(nodes_[rank], 0);
}

void Extents::clear() {
  for (const std::uint64_t each : ranked_) rank_[std::size_t(place_[std::uint32_t(each)])] = none;
}

Extents::Largest Extents::largest(std::span<const float> map, float sign, float threshold) {
  Largest found;
  found.extent = grow(map, sign, 0, threshold);
  finish_roots();
  for (std::size_t rank = 0; rank < ranked_.size(); ++rank)
    if (nodes_[rank].parent == std::int32_t(rank))
      found.tfce = std::max(found.tfce, float(nodes_[rank].best));
  clear();
  return found;
}

std::vector<float> Extents::extents(std::span<const float> map, float sign, float threshold) {
  grow(map, sign, threshold, threshold);
  std::vector<float> extents(map.size());
  for (std::size_t rank = 0; rank < ranked_.size(); ++rank)
    extents[std::uint32_t(ranked_[rank])] =
        float(nodes_[std::size_t(root_of(std::int32_t(rank)))].size);
  clear();
  return extents;
}

std::vector<float> Extents::tfce(std::span<const float> map, float sign) {
  grow(map, sign, 0, 0);
  finish_roots();
  std::vector<float> tfce(map.size());
  for (std::size_t rank = 0; rank < ranked_.size(); ++rank) {
    double integral = nodes_[rank].integral;
    for (std::int32_t node = std::int32_t(rank); nodes_[std::size_t(node)].parent != node;) {
      node = nodes_[std::size_t(node)].parent;
      integral += nodes_[std::size_t(node)].integral;
    }
    tfce[std::uint32_t(ranked_[rank])] = float(integral);
  }
  clear();
  return tfce;
}

}  // namespace kvo::inference
