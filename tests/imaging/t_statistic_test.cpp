// Conversion of statistics, against the values that R gives (reference/t_statistic.R).

#include "engine/base/t_statistic.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

#include "table_rows.h"

using namespace kvo::base;

namespace {

constexpr double INF = std::numeric_limits<double>::infinity();

TEST(TStatistic, AgreesWithRInBothTails) {
  const auto rows = table_rows(KVO_REFERENCE, {});
  EXPECT_EQ(rows.size(), 95);
  for (const std::vector<std::string>& row : rows) {
    const auto convert = row[0] == "z" ? t_of_z : t_of_log10_p;
    const double value = std::stod(row[1]), df = std::stod(row[2]), t = std::stod(row[3]);
    // R itself is 9.2e-6 off where t is beyond 1e99; the asymptotic formula bears that out.
    const double tolerance = std::abs(t) < 1e50 ? 1e-7 : 1e-5;
    EXPECT_NEAR(convert(value, df) / t, 1, tolerance)
        << row[0] << " " << value << " with " << df << " degrees of freedom is " << t;
    EXPECT_EQ(convert(-value, df), -convert(value, df)) << row[0] << " " << value;
  }
}

TEST(TStatistic, KeepsWhatIsNoStatistic) {
  for (const auto convert : {t_of_z, t_of_log10_p}) {
    for (const double value : {0.0, INF, -INF}) EXPECT_EQ(convert(value, 30), value);
    EXPECT_TRUE(std::signbit(convert(-0.0, 30)));
    EXPECT_TRUE(std::isnan(convert(std::numeric_limits<double>::quiet_NaN(), 30)));
  }
}

TEST(TStatistic, GrowsWithoutStepsWhereTheMethodChanges) {
  // From near 0 through the part around the middle to the far tail.
  for (const double df : {1.0, 2.0, 7.5, 200.0, 9999.0, 1e6}) {
    double before = 0;
    for (int i = 0; i < 2680; ++i) {  // up to 38
      const double z = 1e-10 * std::pow(1.01, i);
      const double t = t_of_z(z, df);
      ASSERT_GT(t, before) << "z " << z << ", " << df << " degrees of freedom";
      ASSERT_GE(t, z * (1 - 1e-9)) << "Student's tails are the heavier ones";
      before = t;
    }
    before = -INF;
    for (int i = 0; i < 1498; ++i) {  // up to 300
      const double log10_p = 1e-4 * std::pow(1.01, i);
      const double t = t_of_log10_p(log10_p, df);
      ASSERT_GT(t, before) << "-log10 p " << log10_p << ", " << df << " degrees of freedom";
      before = t;
    }
    EXPECT_NEAR(t_of_log10_p(std::log10(2), df), 0, 1e-12);
  }
  // One degree of freedom has a closed form.
  for (int i = 0; i < 54; ++i) {
    const double log10_p = 0.4 + 3.7 * i;
    EXPECT_NEAR(t_of_log10_p(log10_p, 1) * std::tan(M_PI * std::pow(10, -log10_p)), 1, 1e-10);
  }
}

}  // namespace
