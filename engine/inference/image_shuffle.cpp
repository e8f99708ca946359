#include "engine/inference/image_shuffle.h"

#include <algorithm>
#include <bit>
#include <cmath>

#include "engine/inference/null_distribution.h"
#include "engine/maps/peak_map.h"

namespace kvo::inference {

namespace {

/// A larger kernel would be wider than a lobe of the brain.
constexpr double max_sigma = 13;
constexpr double least_correlation = 0.01, largest_correlation = 0.9995;
constexpr int corrections = 3;
/// Trials count together at least so many voxels, or as many as are practical.
constexpr std::size_t trial_voxels = 1'000'000, least_trials = 4, most_trials = 20;

/// A Gaussian kernel in voxels, from the middle outwards, that keeps the variance of white noise.
std::vector<double> gaussian_kernel(double sigma) {
  std::vector<double> kernel{1};
  double squares = 1;
  for (int step = 1; step <= int(std::ceil(radius_in_sigmas * sigma)); ++step) {
    kernel.push_back(std::exp(-step * step / (2 * sigma * sigma)));
    squares += 2 * kernel.back() * kernel.back();
  }
  for (double& weight : kernel) weight /= std::sqrt(squares);
  return kernel;
}

/// The correlation of touching voxels of white noise after smoothing.
double neighbour_correlation(const std::vector<double>& kernel) {
  double sum = 0;
  for (std::size_t step = 1; step < kernel.size(); ++step) sum += kernel[step - 1] * kernel[step];
  return 2 * sum;
}

/// The kernel that gives touching voxels of smoothed white noise that correlation.
std::vector<double> kernel_of(double correlation) {
  double below = 0, above = max_sigma;
  if (correlation < least_correlation) return gaussian_kernel(0);
  for (int halving = 0; halving < 40; ++halving) {
    const double middle = (below + above) / 2;
    (neighbour_correlation(gaussian_kernel(middle)) < correlation ? below : above) = middle;
  }
  return gaussian_kernel(below);
}

/// Random numbers of mean 0 and variance 1 that are close to normal: sums of four uniform ones.
float random_noise(RandomStream& random) {
  const std::uint64_t bits = random.bits();
  const auto sum =
      (bits & 0xFFFFU) + (bits >> 16 & 0xFFFFU) + (bits >> 32 & 0xFFFFU) + (bits >> 48);
  constexpr float mean = 2 * 65535, sd = 37837.0F;  // 65536 / sqrt(3)
  return (float(std::int32_t(sum)) - mean) / sd;
}

/// Rows of numbers that go round: the last is followed by the first.
struct Ring {
  int rows;
  std::size_t stride;  ///< from row to row
  int length;          ///< numbers of a row
};

/// Adds up, for each of the first `count` rows, the rows around it times the kernel.
void smooth_rows(const Ring& ring, const float* from, float* to, int count,
                 const std::vector<float>& kernel) {
  for (int row = 0; row < count; ++row) {
    const float* middle = from + std::size_t(row) * ring.stride;
    float* __restrict sums = to + std::size_t(row) * ring.stride;
    for (int i = 0; i < ring.length; ++i) sums[i] = kernel[0] * middle[i];
    for (int step = 1; step < int(kernel.size()); ++step) {
      const float weight = kernel[std::size_t(step)];
      const float* before = from + std::size_t((row - step + ring.rows) % ring.rows) * ring.stride;
      const float* after = from + std::size_t((row + step) % ring.rows) * ring.stride;
      for (int i = 0; i < ring.length; ++i) sums[i] += weight * (before[i] + after[i]);
    }
  }
}

/// A number that is as much larger than another as the float is.
std::uint32_t order_of(float value) {
  const auto bits = std::bit_cast<std::uint32_t>(value);
  return (bits >> 31) != 0 ? ~bits : bits | 0x80000000U;
}

/// Sorts by the upper half of the numbers; what is equal there keeps its order.
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

}  // namespace

ShuffleSpace::ShuffleSpace(const Mask& mask) {
  std::array<int, 3> first = mni_grid().size, last{-1, -1, -1};
  const auto indices = [](const Voxel& at) { return std::array<int, 3>{at.i, at.j, at.k}; };
  for (std::size_t n = 0; n < mask.size(); ++n) {
    const std::array<int, 3> at = indices(mask.voxel(n));
    for (unsigned axis = 0; axis < 3; ++axis) {
      first[axis] = std::min(first[axis], at[axis]);
      last[axis] = std::max(last[axis], at[axis]);
    }
  }
  for (unsigned axis = 0; axis < 3; ++axis) size_[axis] = last[axis] - first[axis] + 1;
  const std::array<std::size_t, 3> strides{1, std::size_t(size_[0]),
                                           std::size_t(size_[0]) * std::size_t(size_[1])};
  constexpr auto outside = UINT32_MAX;
  std::vector<std::uint32_t> number(strides[2] * std::size_t(size_[2]), outside);
  for (std::size_t n = 0; n < mask.size(); ++n) {
    const std::array<int, 3> at = indices(mask.voxel(n));
    std::size_t index = 0;
    for (unsigned axis = 0; axis < 3; ++axis)
      index += std::size_t(at[axis] - first[axis]) * strides[axis];
    box_index_.push_back(std::uint32_t(index));
    number[index] = std::uint32_t(n);
    for (unsigned axis = 0; axis < 3; ++axis)
      if (at[axis] > first[axis] && number[index - strides[axis]] != outside)
        neighbours_[axis].emplace_back(number[index - strides[axis]], std::uint32_t(n));
  }
}

std::array<double, 3> ShuffleSpace::neighbour_correlations(std::span<const float> map) const {
  double sum = 0, count = 0;
  for (const float value : map) {
    sum += double(value);
    count += value != 0 ? 1 : 0;
  }
  const double mean = count > 0 ? sum / count : 0;
  std::array<double, 3> correlations{};
  for (unsigned axis = 0; axis < 3; ++axis) {
    double products = 0, squares = 0;
    for (const auto& [n, m] : neighbours_[axis]) {
      if (map[n] == 0 || map[m] == 0) continue;
      const double a = double(map[n]) - mean, b = double(map[m]) - mean;
      products += a * b;
      squares += (a * a + b * b) / 2;
    }
    correlations[axis] = squares > 0 ? products / squares : 0;
  }
  return correlations;
}

ImageShuffle::ImageShuffle(const ShuffleSpace& space, std::span<const float> map,
                           std::uint64_t seed, std::uint64_t name_hash)
    : space_(space), seed_(seed), name_hash_(name_hash) {
  for (std::size_t n = 0; n < map.size(); ++n)
    if (map[n] != 0) {
      values_.push_back(map[n]);
      voxels_.push_back(std::uint32_t(n));
    }
  if (values_.size() == map.size()) voxels_ = {};
  std::sort(values_.begin(), values_.end());
  find_kernels(space.neighbour_correlations(map));
}

void ImageShuffle::find_kernels(const std::array<double, 3>& wanted) {
  const auto limited = [](double correlation) {
    return std::clamp(correlation, least_correlation, largest_correlation);
  };
  std::array<double, 3> aims = wanted;
  const auto set_kernels = [&] {
    for (unsigned axis = 0; axis < 3; ++axis) {
      const std::vector<double> kernel = kernel_of(aims[axis]);
      kernels_[axis].assign(kernel.begin(), kernel.end());
    }
  };
  set_kernels();
  const std::size_t trials = std::clamp(trial_voxels / std::max<std::size_t>(values_.size(), 1),
                                        least_trials, most_trials);
  std::vector<float> map(space_.box_index_.size());
  Room room;
  for (int correction = 0; correction < corrections; ++correction) {
    std::array<double, 3> found{};
    for (std::size_t trial = 0; trial < trials; ++trial) {
      // Counted down from the highest number, these are none of the randomizations.
      shuffle(UINT64_MAX - trial, room, map.data());
      const std::array<double, 3> of_trial = space_.neighbour_correlations(map);
      for (unsigned axis = 0; axis < 3; ++axis) found[axis] += of_trial[axis] / double(trials);
    }
    // The logarithm of the correlation is proportional to the inverse square of the width.
    for (unsigned axis = 0; axis < 3; ++axis)
      if (wanted[axis] > least_correlation)
        aims[axis] = limited(std::pow(
            limited(aims[axis]), std::log(limited(wanted[axis])) / std::log(limited(found[axis]))));
    set_kernels();
  }
}

void ImageShuffle::smooth_noise(std::uint64_t randomization, Room& room) const {
  const auto [nx, ny, nz] = space_.size_;
  const auto radius = [&](unsigned axis) { return int(kernels_[axis].size()) - 1; };
  const int margin = radius(0), around_x = nx + margin, around_y = ny + radius(1),
            around_z = nz + radius(2);
  const auto row = std::size_t(nx), plane = row * std::size_t(ny);
  const std::size_t tall_plane = row * std::size_t(around_y);
  room.row.resize(std::size_t(around_x) + std::size_t(margin));
  room.along_x.resize(tall_plane);
  room.along_y.resize(plane * std::size_t(around_z));
  room.noise.resize(plane * std::size_t(nz));

  RandomStream random(seed_, randomization, name_hash_);
  for (int k = 0; k < around_z; ++k) {
    for (int j = 0; j < around_y; ++j) {
      for (int i = margin; i < around_x + margin; ++i)
        room.row[std::size_t(i)] = random_noise(random);
      std::copy_n(room.row.end() - margin, margin, room.row.begin());
      float* __restrict sums = room.along_x.data() + std::size_t(j) * row;
      const float* middle = room.row.data() + margin;
      for (int i = 0; i < nx; ++i) sums[i] = kernels_[0][0] * middle[i];
      for (int step = 1; step <= margin; ++step) {
        const float weight = kernels_[0][std::size_t(step)];
        for (int i = 0; i < nx; ++i) sums[i] += weight * (middle[i - step] + middle[i + step]);
      }
    }
    smooth_rows({around_y, row, nx}, room.along_x.data(),
                room.along_y.data() + std::size_t(k) * plane, ny, kernels_[1]);
  }
  for (int j = 0; j < ny; ++j)
    smooth_rows({around_z, plane, nx}, room.along_y.data() + std::size_t(j) * row,
                room.noise.data() + std::size_t(j) * row, nz, kernels_[2]);
}

void ImageShuffle::shuffle(std::uint64_t randomization, Room& room, float* map) const {
  smooth_noise(randomization, room);
  const std::size_t count = values_.size();
  room.ranked.resize(count);
  const auto add = [&](std::size_t n, std::uint32_t voxel) {
    const float noise = room.noise[space_.box_index_[voxel]];
    room.ranked[n] = std::uint64_t(order_of(noise)) << 32 | voxel;
  };
  if (voxels_.empty())
    for (std::size_t n = 0; n < count; ++n) add(n, std::uint32_t(n));
  else
    for (std::size_t n = 0; n < count; ++n) add(n, voxels_[n]);
  radix_sort(room.ranked, room.sorted);
  if (count < space_.box_index_.size()) std::fill_n(map, space_.box_index_.size(), 0.0F);
  for (std::size_t n = 0; n < count; ++n) map[std::uint32_t(room.ranked[n])] = values_[n];
}

}  // namespace kvo::inference
