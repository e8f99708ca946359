#include "engine/inference/extents.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

using namespace kvo::inference;

namespace {

/// Smooth noise in a part of the grid with holes.
std::vector<float> smooth_noise(const Mask& mask, std::mt19937& random) {
  std::normal_distribution<float> normal;
  std::vector<float> grid(mni_grid().voxels());
  for (float& value : grid) value = normal(random);
  for (const std::size_t stride : {1U, 91U, 91U * 109U})
    for (int times = 0; times < 6; ++times)
      for (std::size_t v = 0; v + stride < grid.size(); ++v)
        grid[v] = (grid[v] + grid[v + stride]) * 0.7F;
  std::vector<float> map;
  for (const std::uint32_t index : mask.grid_index) map.push_back(grid[index]);
  return map;
}

/// A neighbour that is not lower belongs to the same cluster at all heights below, so its TFCE is
/// larger by what lies between the two alone. And whatever was looked at before, the largest value
/// of a map is what is said to be the largest.
TEST(Extents, AddsNothingButWhatLiesBetweenNeighbours) {
  std::vector<bool> inside(mni_grid().voxels());
  std::mt19937 random(3);
  for (int k = 20; k < 50; ++k)
    for (int j = 30; j < 70; ++j)
      for (int i = 20; i < 60; ++i) inside[mni_grid().index(i, j, k)] = random() % 9 != 0;
  const Mask mask = mask_of(inside);
  std::vector<std::size_t> number(inside.size());
  for (std::size_t n = 0; n < mask.size(); ++n) number[mask.grid_index[n]] = n;
  Extents extents(mask);
  for (int map = 0; map < 2; ++map) {
    const std::vector<float> z = smooth_noise(mask, random);
    for (const float sign : {1.0F, -1.0F}) {
      const Extents::Largest largest = extents.largest(z, sign, 1.5F);
      const std::vector<float> sizes = extents.extents(z, sign, 1.5F), tfce = extents.tfce(z, sign);
      const float most = *std::max_element(tfce.begin(), tfce.end());
      EXPECT_EQ(largest.extent, *std::max_element(sizes.begin(), sizes.end()));
      EXPECT_NEAR(largest.tfce, most, 1e-4 * double(most));
      std::size_t wrong = 0;
      for (std::size_t n = 0; n < mask.size(); ++n)
        for_each_neighbour(mni_grid(), mask.grid_index[n], Touch::corners, [&](std::size_t index) {
          const float high = sign * z[number[index]], low = std::max(sign * z[n], 0.0F);
          if (!inside[index] || !(high > low)) return;
          const float more = tfce[number[index]] - tfce[n];
          const float between = (std::pow(high, 3.0F) - std::pow(low, 3.0F)) / 3;
          const float limit = std::sqrt(float(mask.size())) * between + 0.01F;
          wrong += more < between * 0.99F - 0.01F || more > limit ? 1 : 0;
        });
      EXPECT_EQ(wrong, 0U);
    }
  }
}

}  // namespace
