// Where estimates stand on forest and funnel plots.

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "engine/report/plot_style.h"
#include "engine/report/plots.h"
#include "pixels.h"

using namespace kvo::report;

namespace {

constexpr int row_pixels = 36;

bool has_colour(std::uint32_t rgb, Rgb colour) {
  return rgb == (std::uint32_t(std::lround(colour.red * 255)) << 16 |
                 std::uint32_t(std::lround(colour.green * 255)) << 8 |
                 std::uint32_t(std::lround(colour.blue * 255)));
}
bool is_data(std::uint32_t rgb) {
  return has_colour(rgb, data_colour);
}
bool is_pooled(std::uint32_t rgb) {
  return has_colour(rgb, pooled_colour);
}

ForestRow row_at(double g, double half, double weight) {
  return {"study", 20, g, {g - half, g + half}, weight};
}

/// The blue marks of the rows, from the top; lines of the interval are left out by their height.
std::vector<Area> squares(const Pixels& pixels, std::size_t rows) {
  // Without a title the rows begin below the header.
  const int first = 2 * (14 / 2 + 24 + 3);
  std::vector<Area> found;
  for (std::size_t i = 0; i < rows; ++i) {
    const int top = first + int(i) * row_pixels;
    found.push_back(area(pixels, is_data, 0, pixels.width, top, top + row_pixels));
  }
  return found;
}

TEST(ForestPlot, PlacesEstimatesByTheirValueAndSizesThemByTheirWeight) {
  ForestPlot plot;
  // Intervals of no width leave the squares alone.
  plot.rows = {row_at(-1, 0, 40), row_at(0, 0, 10), row_at(1, 0, 40), row_at(2.5, 0, 10)};
  plot.pooled = 0.5;
  plot.pooled_interval = {0.2, 0.8};
  const std::vector<Picture> pictures = forest_plot(plot);
  ASSERT_EQ(pictures.size(), 1U);
  EXPECT_EQ(pictures[0].png, forest_plot(plot)[0].png) << "the same plot, other bytes";
  const Pixels pixels = decoded(pictures[0].png);
  const std::vector<Area> marks = squares(pixels, 4);
  const double unit = marks[2].x - marks[1].x;
  EXPECT_GT(unit, 20);
  EXPECT_NEAR(marks[1].x - marks[0].x, unit, 1);
  EXPECT_NEAR(marks[3].x - marks[1].x, 2.5 * unit, 1.5);
  for (std::size_t i = 1; i < marks.size(); ++i)
    EXPECT_NEAR(marks[i].y - marks[i - 1].y, row_pixels, 1);
  EXPECT_NEAR(double(marks[0].pixels) / marks[1].pixels, 4, 0.5);
  EXPECT_NEAR(marks[0].pixels, marks[2].pixels, 60);
  // The diamond and its line are symmetric around the pooled estimate.
  EXPECT_NEAR(area(pixels, is_pooled).x, marks[1].x + 0.5 * unit, 1);
}

TEST(ForestPlot, DrawsIntervalsAndCutsThoseThatGoTooFar) {
  ForestPlot plot;
  plot.rows = {row_at(0, 1, 50), row_at(0, 0.5, 40), row_at(0, 1000, 10)};
  const Pixels pixels = decoded(forest_plot(plot)[0].png);
  // Along the middle of a row only the interval and its square are blue.
  const auto length = [&](int row) {
    const int y = 2 * (14 / 2 + 24 + 3) + row * row_pixels + row_pixels / 2;
    return area(pixels, is_data, 0, pixels.width, y, y + 1).pixels;
  };
  EXPECT_NEAR(length(0), 2 * length(1), 4);
  EXPECT_LT(length(0), length(2));
  EXPECT_LT(length(2), 2 * 240);
  EXPECT_GT(length(0), 100) << "pressed together by the widest";
}

TEST(ForestPlot, SplitsManyStudiesIntoPicturesForAPage) {
  struct {
    std::size_t studies, pictures;
  } const cases[] = {{0, 0}, {1, 1}, {40, 1}, {41, 1}, {60, 1}, {61, 2}, {1000, 17}};
  for (const auto& [studies, pictures] : cases) {
    ForestPlot plot;
    plot.title = "Title";
    plot.rows.assign(studies, row_at(0.5, 0.2, 1));
    plot.pooled = 0.5;
    plot.prediction = Interval{0.1, 0.9};
    plot.heterogeneity = "Q = 12.1, df = 9, p = 0.21";
    const std::vector<Picture> drawn = forest_plot(plot);
    EXPECT_EQ(drawn.size(), pictures) << studies;
    for (const Picture& picture : drawn) EXPECT_LT(picture.height, 960) << studies;
  }
}

TEST(ForestPlot, KeepsNamesInTheirColumn) {
  const auto drawn = [](std::string_view name) {
    ForestPlot plot;
    plot.rows = {{std::string(name), 20, 0.5, {0.3, 0.7}, 100}};
    return decoded(forest_plot(plot)[0].png);
  };
  const Pixels plain = drawn("a");
  const std::string longest(5000, 'W'), bytes("\xFF\xFE\x00\x1B", 4);
  for (const std::string_view name :
       {std::string_view(longest), std::string_view("<b>bold</b> & </span>"),
        std::string_view("研究 عربي 🧠"), std::string_view("two\nlines\n\n"),
        std::string_view(bytes), std::string_view("\u202E\u2028x")}) {
    const Pixels pixels = drawn(name);
    ASSERT_EQ(pixels.height, plain.height) << name.substr(0, 40);
    bool differs = false;
    for (int y = 0; y < plain.height; ++y)
      for (int x = 0; x < plain.width; ++x)
        if (pixels.at(x, y) != plain.at(x, y)) {
          differs = true;
          ASSERT_LT(x, 2 * 212) << name.substr(0, 40);
        }
    EXPECT_TRUE(differs) << name.substr(0, 40);
  }
}

TEST(FunnelPlot, PlacesStudiesByEffectAndError) {
  struct {
    double g, error;
  } const points[] = {{0.2, 0.1}, {1.2, 0.1}, {0.7, 0.3}, {0.7, 0.2}};
  std::vector<Area> marks;
  // One at a time, with others out of the way that keep the axes.
  for (const auto& point : points) {
    FunnelPlot plot;
    plot.pooled = 0.7;
    plot.points = {{"a", point.g, point.error}, {"wide", -1, 0.5}, {"wide", 2.4, 0.5}};
    const Pixels pixels = decoded(funnel_plot(plot).png);
    marks.push_back(area(pixels, is_data, 0, pixels.width, 0, 2 * 280));
    EXPECT_GT(marks.back().pixels, 20);
  }
  EXPECT_NEAR(marks[2].x, (marks[0].x + marks[1].x) / 2, 1);
  EXPECT_NEAR(marks[3].x, marks[2].x, 0.6);
  EXPECT_NEAR(marks[2].y - marks[3].y, marks[3].y - marks[0].y, 1);
  EXPECT_GT(marks[2].y, marks[3].y) << "errors grow downwards";
  EXPECT_NEAR(marks[0].y, marks[1].y, 0.6);
}

TEST(Plots, TakeAnyNumbers) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const double infinite = std::numeric_limits<double>::infinity();
  for (const double value : {nan, infinite, -infinite, 0.0, 1e300, -1e300, 1e-300}) {
    ForestPlot forest;
    forest.rows = {{"a", 0, value, {value, value}, value}, row_at(value, 1, 0)};
    forest.pooled = value;
    forest.pooled_interval = {value, value};
    forest.prediction = Interval{value, value};
    EXPECT_EQ(forest_plot(forest).size(), 1U) << value;
    FunnelPlot funnel;
    funnel.pooled = value;
    funnel.points = {{"a", value, 1}, {"b", 1, value}, {"c", 1, -1}};
    EXPECT_FALSE(funnel_plot(funnel).png.empty()) << value;
  }
}

}  // namespace
