// Ids for temporary files.

#include "shell/random_id.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <set>

namespace {

TEST(RandomId, IsInRangeAndDiffers) {
  constexpr int DRAWS = 3000;
  std::set<int> ids;
  for (int i = 0; i < DRAWS; ++i) ids.insert(Q_runif_int());
  EXPECT_GE(*ids.begin(), 1);
  EXPECT_LE(*ids.rbegin(), 999999999);
  // Of so many draws a handful may fall on the same id by chance; the range is used throughout.
  EXPECT_GT(ids.size(), DRAWS - 20U);
  EXPECT_LT(*ids.begin(), 50000000);
  EXPECT_GT(*ids.rbegin(), 950000000);
}

/// Within a run over the 24 bytes of the record each step depends only on the one before, and seeds
/// the generator.
TEST(RandomId, StepsAsDeclared) {
  int chained = 0;
  std::uint32_t before = innerQ_runif_int_reseed();
  for (int i = 0; i < 240; ++i) {
    const std::uint32_t after = innerQ_runif_int_reseed();
    chained += after - ((before * 257U) | 1U) < 256U ? 1 : 0;
    before = after;
    const int next = std::rand();
    std::srand(after);
    EXPECT_EQ(std::rand(), next) << i;
  }
  // Only every third refresh, one of 72 steps, may change the accumulator in between.
  EXPECT_GE(chained, 240 - 4);
}

}  // namespace
