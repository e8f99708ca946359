// Ids for temporary files.

#include "shell/random_id.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <set>

namespace {

TEST(RandomId, IsInRangeAndDiffers) {
  constexpr int DRAWS = 3000;
  std::set<int> ids;
  int smallest = 1000000000;
  int largest = 0;
  for (int i = 0; i < DRAWS; ++i) {
    const int id = Q_runif_int();
    ids.insert(id);
    smallest = std::min(smallest, id);
    largest = std::max(largest, id);
  }
  EXPECT_GE(smallest, 1);
  EXPECT_LE(largest, 999999999);
  // Of so many draws a handful may fall on the same id by chance; the range is used throughout.
  EXPECT_GT(ids.size(), DRAWS - 20U);
  EXPECT_LT(smallest, 50000000);
  EXPECT_GT(largest, 950000000);
}

TEST(RandomId, ReseedsTheGeneratorWithTheAccumulator) {
  for (int i = 0; i < 100; ++i) {
    const std::uint32_t accumulator = innerQ_runif_int_reseed();
    const int next = std::rand();
    std::srand(accumulator);
    EXPECT_EQ(std::rand(), next) << i;
  }
}

/// Within a run over the 24 bytes of the record each step depends only on the one before.
TEST(RandomId, StepsAsDeclared) {
  int chained = 0;
  std::uint32_t before = innerQ_runif_int_reseed();
  for (int i = 0; i < 240; ++i) {
    const std::uint32_t after = innerQ_runif_int_reseed();
    const std::uint32_t byte = after - ((before * 257U) | 1U);
    chained += byte < 256U ? 1 : 0;
    before = after;
  }
  // Only every third refresh, one of 72 steps, may change the accumulator in between.
  EXPECT_GE(chained, 240 - 4);
}

}  // namespace
