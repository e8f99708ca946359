#include "engine/inference/image_shuffle.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <random>
#include <set>

using namespace kvo::inference;

namespace {

using Map = std::vector<float>;

/// A ball of 4169 voxels and a rod of 30 beside it.
Mask ball_and_rod() {
  std::vector<bool> inside(mni_grid().voxels());
  for (std::uint32_t index = 0; index < inside.size(); ++index) {
    const Voxel at = mni_grid().voxel(index);
    const int x = at.i - 40, y = at.j - 50, z = at.k - 30;
    inside[index] = x * x + y * y + z * z <= 100 || (at.j == 20 && at.k == 30 && at.i < 30);
  }
  return mask_of(inside);
}

/// Noise that has been averaged with its neighbours along each axis so many times.
Map smooth_noise(const Mask& mask, std::array<int, 3> times, unsigned seed) {
  std::mt19937 random(seed);
  std::normal_distribution<float> normal;
  Map grid(mni_grid().voxels());
  for (float& value : grid) value = normal(random);
  const std::size_t strides[] = {1, 91, std::size_t(91) * 109};
  for (unsigned axis = 0; axis < 3; ++axis)
    for (int time = 0; time < times[axis]; ++time)
      for (std::size_t v = 0; v + strides[axis] < grid.size(); ++v)
        grid[v] = (grid[v] + grid[v + strides[axis]]) / 2;
  Map map;
  for (const std::uint32_t index : mask.grid_index) map.push_back(grid[index]);
  return map;
}

/// The correlation of voxels that touch along an axis, from all pairs of the mask.
double correlation(const Mask& mask, const Map& map, std::uint32_t stride) {
  std::vector<double> a, b;
  for (std::size_t n = 0; n < mask.size(); ++n) {
    const auto found = std::lower_bound(mask.grid_index.begin(), mask.grid_index.end(),
                                        mask.grid_index[n] + stride);
    if (found == mask.grid_index.end() || *found != mask.grid_index[n] + stride) continue;
    const float other = map[std::size_t(found - mask.grid_index.begin())];
    if (map[n] == 0 || other == 0) continue;
    a.push_back(double(map[n]));
    b.push_back(double(other));
  }
  const auto mean = [](const std::vector<double>& values) {
    double sum = 0;
    for (const double value : values) sum += value;
    return sum / double(values.size());
  };
  const double mean_a = mean(a), mean_b = mean(b);
  double ab = 0, aa = 0, bb = 0;
  for (std::size_t n = 0; n < a.size(); ++n) {
    ab += (a[n] - mean_a) * (b[n] - mean_b);
    aa += (a[n] - mean_a) * (a[n] - mean_a);
    bb += (b[n] - mean_b) * (b[n] - mean_b);
  }
  return ab / std::sqrt(aa * bb);
}

Map sorted(Map map) {
  std::sort(map.begin(), map.end());
  return map;
}

TEST(ImageShuffle, DealsTheValuesOutAsSmoothlyAsTheyWere) {
  struct Case {
    const char* name;
    std::array<int, 3> smoothed;
    std::function<float(float noise, std::size_t voxel)> value;
  };
  const auto same = [](float noise, std::size_t) { return noise; };
  const Case cases[] = {
      {"rough", {0, 0, 0}, same},
      {"a little smooth", {2, 2, 2}, same},
      {"smooth", {12, 12, 12}, same},
      {"smooth along one axis", {2, 20, 6}, same},
      {"skewed, with heavy tails",
       {8, 8, 8},
       [](float noise, std::size_t) { return std::exp(6 * noise); }},
      {"of few values", {8, 8, 8}, [](float noise, std::size_t) { return noise > 0 ? 2.F : -1.F; }},
      {"half without data",
       {8, 8, 8},
       [](float noise, std::size_t voxel) { return voxel % 4000 < 2000 ? 0 : noise; }},
  };
  const Mask mask = ball_and_rod();
  const ShuffleSpace space(mask);
  ImageShuffle::Room room;
  for (const Case& c : cases) {
    constexpr unsigned images = 6, repeats = 6;
    double asked[3] = {}, given[3] = {};
    for (unsigned seed = 1; seed <= images; ++seed) {
      Map image = smooth_noise(mask, c.smoothed, seed);
      for (std::size_t n = 0; n < image.size(); ++n) image[n] = c.value(image[n], n);
      const ImageShuffle shuffle(space, image, seed, 7);
      std::set<Map> different;
      for (unsigned repeat = 0; repeat < repeats; ++repeat) {
        Map map(mask.size(), 99);
        shuffle.shuffle(repeat, room, map.data());
        ASSERT_EQ(sorted(map), sorted(image)) << c.name;
        for (std::size_t n = 0; n < map.size(); ++n)
          ASSERT_EQ(map[n] == 0, image[n] == 0) << c.name << ", voxel " << n;
        different.insert(map);
        for (unsigned axis = 0; axis < 3; ++axis) {
          const std::uint32_t stride = axis == 0 ? 1 : axis == 1 ? 91 : 91 * 109;
          given[axis] += correlation(mask, map, stride) / (images * repeats);
          if (repeat == 0) asked[axis] += correlation(mask, image, stride) / images;
        }
      }
      EXPECT_EQ(different.size(), repeats) << c.name;
    }
    // What an image lacks to full correlation says how smooth it is. A kernel makes no negative
    // correlation, which rough images have by chance.
    for (unsigned axis = 0; axis < 3; ++axis)
      EXPECT_NEAR(given[axis], asked[axis], 0.01 + 0.05 * (1 - asked[axis]))
          << c.name << ", axis " << axis;
  }
}

TEST(ImageShuffle, TakesImagesWithoutAnyPattern) {
  const Mask mask = ball_and_rod();
  const ShuffleSpace space(mask);
  ImageShuffle::Room room;
  Map constant(mask.size(), 1.5F), single(mask.size()), trend;
  single[1234] = -2;
  for (std::size_t n = 0; n < mask.size(); ++n)
    trend.push_back(1 + float(mask.voxel(n).k + mask.voxel(n).j));
  for (const Map& image : {constant, single, trend}) {
    Map map(mask.size(), 99);
    ImageShuffle(space, image, 1, 7).shuffle(3, room, map.data());
    EXPECT_EQ(sorted(map), sorted(image));
  }
}

}  // namespace
