// What is seen on the pictures of a report, as their readers decode them: a map's voxels on
// pictures of the brain, in which colours; estimates on forest and funnel plots.

#include <cairo.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstring>
#include <limits>

#include "engine/report/brain_picture.h"
#include "engine/report/colour_scale.h"
#include "engine/report/plot_style.h"
#include "engine/report/plots.h"
#include "engine/report/png.h"

using namespace kvo::images;
using namespace kvo::report;

namespace {

struct Pixels {
  int width = 0, height = 0;
  std::vector<std::uint32_t> values;  ///< 0xRRGGBB, row by row

  [[nodiscard]] std::uint32_t at(int x, int y) const {
    return values[std::size_t(y) * std::size_t(width) + std::size_t(x)];
  }
};

/// Where the pixels of some colours are.
struct Area {
  int pixels = 0;
  double x = 0, y = 0;  ///< the middle of them all, in pixels
};

constexpr auto red = [](std::uint32_t rgb) { return int(rgb >> 16 & 0xFFU); };
constexpr auto green = [](std::uint32_t rgb) { return int(rgb >> 8 & 0xFFU); };
constexpr auto blue = [](std::uint32_t rgb) { return int(rgb & 0xFFU); };
constexpr auto is_warm = [](std::uint32_t rgb) { return red(rgb) > blue(rgb) + 60; };
constexpr auto is_cold = [](std::uint32_t rgb) { return blue(rgb) > red(rgb) + 60; };

cairo_status_t read_some(void* rest, unsigned char* bytes, unsigned int length) {
  auto& left = *static_cast<std::string_view*>(rest);
  if (left.size() < length) return CAIRO_STATUS_READ_ERROR;
  std::memcpy(bytes, left.data(), length);
  left.remove_prefix(length);
  return CAIRO_STATUS_SUCCESS;
}

/// Decodes a PNG file with libpng.
Pixels decoded(const std::string& png) {
  std::string_view rest = png;
  cairo_surface_t* surface = cairo_image_surface_create_from_png_stream(read_some, &rest);
  EXPECT_EQ(cairo_surface_status(surface), CAIRO_STATUS_SUCCESS);
  Pixels pixels{
      cairo_image_surface_get_width(surface), cairo_image_surface_get_height(surface), {}};
  for (int y = 0; y < pixels.height; ++y) {
    const auto* row = reinterpret_cast<const std::uint32_t*>(
        cairo_image_surface_get_data(surface) +
        std::ptrdiff_t(y) * cairo_image_surface_get_stride(surface));
    for (int x = 0; x < pixels.width; ++x) pixels.values.push_back(row[x] & 0xFFFFFFU);
  }
  cairo_surface_destroy(surface);
  return pixels;
}

/// The pixels of a part of the picture, by default all, whose colour is so.
Area area(const Pixels& pixels, const std::function<bool(std::uint32_t)>& has_colour, int left = 0,
          int right = 10000, int top = 0, int bottom = 10000) {
  Area found;
  for (int y = top; y < std::min(bottom, pixels.height); ++y)
    for (int x = left; x < std::min(right, pixels.width); ++x)
      if (has_colour(pixels.at(x, y))) {
        ++found.pixels;
        found.x += x + 0.5;
        found.y += y + 0.5;
      }
  if (found.pixels > 0) {
    found.x /= found.pixels;
    found.y /= found.pixels;
  }
  return found;
}

using testing::HasSubstr;
using Mm = std::array<int, 3>;

constexpr float nothing = 0;
// The sheet is 720 wide with a margin of 8 and six slices in a row, at two pixels for each.
constexpr int cell_pixels = (720 - 2 * 8) / 6 * 2, margin_pixels = 16;

std::vector<float> empty_map() {
  return std::vector<float>(mni_grid().voxels(), nothing);
}

/// Gives the voxels of a box from one MNI coordinate to another a value.
void fill(std::vector<float>& map, const Mm& from, const Mm& to, float value) {
  for (int x = from[0]; x <= to[0]; x += 2)
    for (int y = from[1]; y <= to[1]; y += 2)
      for (int z = from[2]; z <= to[2]; z += 2)
        map[mni_grid().index((x + 90) / 2, (y + 126) / 2, (z + 72) / 2)] = value;
}

/// The same of those within 4 mm of a coordinate along each axis.
void add_blob(std::vector<float>& map, const Mm& mm, float value, int reach_z = 4) {
  fill(map, {mm[0] - 4, mm[1] - 4, mm[2] - reach_z}, {mm[0] + 4, mm[1] + 4, mm[2] + reach_z},
       value);
}

BrainBackground box_brain() {
  BrainBackground background{empty_map(), empty_map()};
  fill(background.brain, {-60, -90, -40}, {60, 60, 70}, 1);
  fill(background.anatomy, {-60, -90, -40}, {60, 60, 70}, 100);
  return background;
}

TEST(AxialSlices, ShowVoxelsInTheirSliceAndAtTheirSide) {
  std::vector<float> map = empty_map();
  add_blob(map, {-40, 40, -20}, 3, 0);
  add_blob(map, {30, -60, -20}, -3, 0);
  add_blob(map, {0, 0, 30}, 5, 0);
  const Picture picture = axial_slices({map}, box_brain());
  EXPECT_THAT(picture.alt, HasSubstr("z = \u221224 to 34 mm"));  // 30 slices: five whole rows
  const Pixels pixels = decoded(picture.png);
  EXPECT_EQ(pixels.width, 2 * picture.width);
  EXPECT_EQ(pixels.height, 2 * picture.height);

  // Rows are as high as one another, below a margin and above the bar.
  const int bar = 2 * ColourScale::bar_height;
  const int row_pixels = (pixels.height - 2 * margin_pixels - bar) / 5;
  for (int n = 0; n < 30; ++n) {
    const int left = margin_pixels + n % 6 * cell_pixels;
    const int top = margin_pixels + n / 6 * row_pixels;
    const int z = -24 + 2 * n;
    SCOPED_TRACE("slice of z = " + std::to_string(z));
    const Area warm = area(pixels, is_warm, left, left + cell_pixels, top, top + row_pixels);
    const Area cold = area(pixels, is_cold, left, left + cell_pixels, top, top + row_pixels);
    EXPECT_EQ(warm.pixels > 0, z == -20 || z == 30);
    EXPECT_EQ(cold.pixels > 0, z == -20);
    const double middle = left + cell_pixels / 2.0;
    constexpr double pixels_per_mm = 1.5;  // three for each voxel
    if (z == 30) {
      EXPECT_NEAR(warm.x, middle, 1);
    } else if (z == -20) {
      // Left is left, and front is up.
      EXPECT_NEAR(warm.x, middle - 40 * pixels_per_mm, 1);
      EXPECT_NEAR(cold.x, middle + 30 * pixels_per_mm, 1);
      EXPECT_NEAR(cold.y - warm.y, 100 * pixels_per_mm, 1);
      // Five by five voxels, with its corners rounded.
      EXPECT_NEAR(warm.pixels, 15 * 15, 8);
    }
  }
}

TEST(AxialSlices, ShowWhatIsThereWithoutBackgroundAndTheBrainWithoutAMap) {
  std::vector<float> map = empty_map();
  map[0] = std::numeric_limits<float>::quiet_NaN();
  map[1] = std::numeric_limits<float>::infinity();
  const Picture none = axial_slices({map}, box_brain());
  EXPECT_THAT(none.alt, HasSubstr("Nothing is above the thresholds"));
  EXPECT_EQ(area(decoded(none.png), is_warm).pixels, 0);
  EXPECT_GT(area(decoded(none.png), [](std::uint32_t rgb) { return rgb == 0xB7B7B7; }).pixels,
            1000);

  // Corners of the grid, which no brain reaches.
  map[1] = nothing;
  map.front() = -2;
  map.back() = 2;
  for (const BrainBackground& background : {BrainBackground{}, box_brain()}) {
    const Pixels corners = decoded(axial_slices({map}, background).png);
    EXPECT_GT(area(corners, is_warm, 0, corners.width, 0, corners.height - 100).pixels, 0);
    EXPECT_GT(area(corners, is_cold, 0, corners.width, 0, corners.height - 100).pixels, 0);
    EXPECT_FALSE(glass_brain({map}, background, {}).png.empty());
  }
}

TEST(GlassBrain, RimsNegativeAreasSoThatTheyDifferWithoutColours) {
  for (const float height : {-5.0F, 5.0F}) {
    std::vector<float> map = empty_map();
    add_blob(map, {40, 30, 50}, height);
    const Pixels pixels = decoded(glass_brain({map}, box_brain(), {}).png);
    const int rim = area(pixels, [](std::uint32_t rgb) { return rgb == 0xFFFFFF; }).pixels;
    EXPECT_EQ(rim > 100, height < 0) << rim;
  }
}

TEST(GlassBrain, ProjectsTheLargestMagnitudeOntoEachView) {
  std::vector<float> map = empty_map();
  add_blob(map, {-40, -70, -20}, 5);
  add_blob(map, {40, 30, 50}, -5);
  // Weaker voxels on the same lines of sight are not seen.
  add_blob(map, {40, -70, -20}, -2);
  const Picture picture = glass_brain({map}, box_brain(), {});
  const Pixels pixels = decoded(picture.png);
  const auto strong_warm = [](std::uint32_t rgb) { return rgb == level_colour(63, true); };
  const auto strong_cold = [](std::uint32_t rgb) { return rgb == level_colour(63, false); };

  // Sagittal, coronal and axial: the views are as wide as the brain with a voxel on either side.
  constexpr std::array<int, 3> voxels = {78, 63, 63};
  const int size = (720 - 2 * 10 - 2 * 14) * 2 / (78 + 63 + 63);
  int left = (720 - (78 + 63 + 63) * size / 2 - 28) / 2 * 2;
  struct {
    double across, up;
  } const mm_apart[3] = {{100, 70}, {80, 70}, {80, 100}};
  for (std::size_t view = 0; view < voxels.size(); ++view) {
    SCOPED_TRACE("view " + std::to_string(view));
    const int right = left + voxels[view] * size, bottom = pixels.height - 120;
    const Area warm = area(pixels, strong_warm, left, right, 0, bottom);
    const Area cold = area(pixels, strong_cold, left, right, 0, bottom);
    EXPECT_NEAR(cold.x - warm.x, mm_apart[view].across / 2 * size, 1);
    EXPECT_NEAR(warm.y - cold.y, mm_apart[view].up / 2 * size, 1);
    EXPECT_NEAR(warm.pixels, 25 * size * size, 25);
    left = right + 2 * 14;
  }
}

TEST(GlassBrain, WritesMarksThatDoNotCoverEachOther) {
  std::vector<float> map = empty_map();
  add_blob(map, {0, 0, 0}, 5);
  const auto with_marks = [&](const std::vector<BrainMark>& marks) {
    return glass_brain({map}, box_brain(), marks).png;
  };
  const Voxel middle{45, 63, 36}, beside{46, 64, 37}, far{30, 40, 60};
  const std::string one = with_marks({{middle, "1"}});
  EXPECT_NE(one, with_marks({}));
  EXPECT_EQ(one, with_marks({{middle, "1"}, {beside, "2"}}));
  EXPECT_NE(one, with_marks({{middle, "1"}, {far, "2"}}));
  EXPECT_EQ(one, with_marks({{middle, "1"}})) << "the same marks, other bytes";
}

/// Blue tells them apart for those who see no difference between red and green too.
TEST(ColourScale, GrowsBrighterAndKeepsTheSignsApart) {
  for (const bool positive : {true, false}) {
    int before = 0;
    for (int level = 0; level < colour_levels; ++level) {
      const std::uint32_t rgb = level_colour(level, positive);
      EXPECT_EQ(is_warm(rgb), positive) << level;
      EXPECT_EQ(is_cold(rgb), !positive) << level;
      const int luminance = 2126 * red(rgb) + 7152 * green(rgb) + 722 * blue(rgb);
      EXPECT_GT(luminance, before) << level;
      before = luminance;
    }
  }
}

TEST(ColourScale, SpansTheMagnitudesOfTheMap) {
  const std::vector<float> map = {0, 2, -6, 4, std::nanf("")};
  const ColourScale scale(map);
  EXPECT_EQ(scale.colour(2, true), level_colour(0, true));
  EXPECT_EQ(scale.colour(4, false), level_colour(32, false));
  EXPECT_EQ(scale.colour(6, false), level_colour(63, false));
  EXPECT_THAT(scale.words("z"), HasSubstr("from 2.00 to 6.00"));
  const std::vector<float> alike = {3, 3};
  EXPECT_EQ(ColourScale(alike).colour(3, true), level_colour(63, true));
}

TEST(Png, KeepsPixelsWithAndWithoutPalette) {
  for (const int colours : {1, 2, 256, 257, 5000}) {
    SCOPED_TRACE(std::to_string(colours) + " colours");
    constexpr int width = 97, height = 61, stride = 100;
    std::vector<std::uint32_t> sheet(stride * height, 0x123456);
    std::vector<std::uint32_t> expected;
    for (int y = 0; y < height; ++y)
      for (int x = 0; x < width; ++x) {
        const auto rgb = std::uint32_t((y * width + x) % colours) * 2654435761U & 0xFFFFFFU;
        sheet[std::size_t(y) * std::size_t(stride) + std::size_t(x)] = rgb | 0xFF000000U;
        expected.push_back(rgb);
      }
    const std::string png = png_of(sheet.data(), width, height, stride, 7559);
    EXPECT_EQ(png[25] == 3, colours <= 256) << "whether it has a palette";
    EXPECT_EQ(decoded(png).values, expected);
  }
}

constexpr int row_pixels = 36;

auto colour(Rgb rgb) {
  return [=](std::uint32_t pixel) {
    return red(pixel) == std::lround(rgb.red * 255) &&
           green(pixel) == std::lround(rgb.green * 255) &&
           blue(pixel) == std::lround(rgb.blue * 255);
  };
}
const auto is_data = colour(data_colour), is_pooled = colour(pooled_colour);

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
  plot.rows = {row_at(-1, 0, 40), row_at(0, 0, 10), row_at(1, 0, 40), row_at(2.5, 0, 10),
               row_at(0, 0, 40)};
  plot.rows[4].known = "1 peak nearby, g 1.00";
  plot.rows[4].mark = 1;
  plot.pooled = 0.5;
  plot.pooled_interval = {0.2, 0.8};
  const std::vector<Picture> pictures = forest_plot(plot);
  ASSERT_EQ(pictures.size(), 1U);
  EXPECT_EQ(pictures[0].png, forest_plot(plot)[0].png) << "the same plot, other bytes";
  const Pixels pixels = decoded(pictures[0].png);
  const std::vector<Area> marks = squares(pixels, 5);
  const double unit = marks[2].x - marks[1].x;
  EXPECT_GT(unit, 20);
  EXPECT_NEAR(marks[1].x - marks[0].x, unit, 1);
  EXPECT_NEAR(marks[3].x - marks[1].x, 2.5 * unit, 1.5);
  for (std::size_t i = 1; i < marks.size(); ++i)
    EXPECT_NEAR(marks[i].y - marks[i - 1].y, row_pixels, 1);
  EXPECT_NEAR(double(marks[0].pixels) / marks[1].pixels, 4, 0.5);
  EXPECT_NEAR(marks[0].pixels, marks[2].pixels, 60);
  // What is known instead of an estimate has a hollow mark.
  EXPECT_NEAR(marks[4].x, marks[2].x, 1);
  EXPECT_GT(marks[4].pixels, 5);
  const int x = int(marks[4].x), y = int(marks[4].y);
  EXPECT_EQ(area(pixels, is_data, x - 2, x + 3, y - 2, y + 3).pixels, 0);
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

TEST(DensityPlot, PlacesCurveEstimateAndInterval) {
  DensityPlot plot;
  plot.estimate = 0.5;
  plot.interval = {0.2, 0.8};
  // Highest at 0.9, where neither the estimate nor the normal density of the interval is.
  plot.points = {{0, 0}, {0.85, 0}, {0.9, 1}, {0.95, 0}, {1, 0}};
  const Pixels pixels = decoded(density_plot(plot).png);
  const double at_0 = 2 * 120, unit = 2 * 480;
  EXPECT_NEAR(area(pixels, is_data, 0, pixels.width, 0, 60).x, at_0 + 0.9 * unit, 8);
  EXPECT_NEAR(area(pixels, is_pooled).x, at_0 + 0.5 * unit, 1);
  const Area interval = area(pixels, colour(rgb_of(0xE1F0FF)));
  EXPECT_NEAR(interval.x, at_0 + 0.5 * unit, 15);
  EXPECT_NEAR(interval.pixels, 0.6 * unit * 2 * 150, 0.1 * unit * 2 * 150);
}

TEST(Plots, TakeAnyNumbers) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const double infinite = std::numeric_limits<double>::infinity();
  for (const double value : {nan, infinite, -infinite, 0.0, 1e300, -1e300, 1e-300}) {
    ForestPlot forest;
    forest.rows = {{"a", 0, value, {value, value}, value}, row_at(value, 1, 0)};
    forest.rows.push_back(row_at(1, 1, 0));
    forest.rows.back().known = "a peak";
    forest.rows.back().mark = value;
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
