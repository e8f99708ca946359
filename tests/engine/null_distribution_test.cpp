#include "engine/inference/null_distribution.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "engine/inference/tails.h"

using namespace kvo::inference;

namespace {

/// Values with many ties and some far tails.
std::vector<float> some_values(std::size_t count, unsigned seed) {
  std::mt19937 random(seed);
  std::normal_distribution<float> normal;
  std::vector<float> values;
  for (std::size_t i = 0; i < count; ++i) {
    const float value = normal(random);
    values.push_back(i % 3 == 0     ? 0
                     : i % 7 == 0   ? std::round(value)
                     : i % 101 == 0 ? 90 * value
                                    : value);
  }
  return values;
}

TEST(NullDistribution, GivesThePValuesOfACountByHand) {
  const std::vector<float> observed = some_values(500, 1);
  constexpr std::size_t repeats = 40, per_repeat = 250, threads = 3;
  NullDistribution null(observed, threads);
  std::vector<float> all;
  for (std::size_t r = 0; r < repeats; ++r) {
    const std::vector<float> values = some_values(per_repeat, unsigned(100 + r));
    // A randomization comes in pieces, from different threads.
    null.count(std::span(values).first(100), r % threads);
    null.count(std::span(values).subspan(100), (r + 1) % threads);
    all.insert(all.end(), values.begin(), values.end());
  }
  null.finish();
  ASSERT_EQ(null.values(), all.size());
  const auto share = [](const std::vector<float>& values, auto beyond) {
    const auto count = std::count_if(values.begin(), values.end(), beyond);
    return float((1.0 + double(count)) / (1.0 + double(values.size())));
  };
  for (const Tail tail : {Tail::positive, Tail::negative}) {
    const bool positive = tail == Tail::positive;
    const std::vector<float> p = null.p(tail);
    for (std::size_t i = 0; i < observed.size(); ++i) {
      const auto beyond = [&](float v) { return positive ? v >= observed[i] : v <= observed[i]; };
      EXPECT_EQ(p[i], share(all, beyond)) << "z " << observed[i] << " positive " << positive;
    }
  }
  for (const double q : {0.5, 0.1, 0.01, 0.0001, 1e-7}) {
    // Values beyond 64 all count as 64.
    const double upper = null.quantile(q, Tail::positive), lower = null.quantile(q, Tail::negative);
    const auto beyond = [&](auto test) {
      return double(std::count_if(all.begin(), all.end(), test)) / double(all.size());
    };
    const double step = 1.0 / 1024;
    if (upper < 64) {
      EXPECT_LE(beyond([&](float v) { return v >= upper; }), q) << q;
      EXPECT_GT(beyond([&](float v) { return v >= upper - step; }), q) << q;
    }
    if (lower > -64) {
      EXPECT_LE(beyond([&](float v) { return v < lower; }), q) << q;
      EXPECT_GT(beyond([&](float v) { return v < lower + step; }), q) << q;
    }
  }
}

/// The observed value is one of the randomizations that it is among.
TEST(Tails, CountTheObservedValue) {
  EXPECT_EQ(p_among_largest({3, 1, 2}, std::vector<float>{4, 3, 2.5, 0}),
            (std::vector<float>{0.25, 0.5, 0.5, 1}));
}

}  // namespace
