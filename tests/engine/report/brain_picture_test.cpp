// Where a map's voxels are seen on pictures of the brain, in which colours, and the PNG files.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <limits>

#include "engine/report/brain_picture.h"
#include "engine/report/colour_scale.h"
#include "engine/report/png.h"
#include "pixels.h"

using namespace kvo::report;

namespace {

using testing::HasSubstr;
using Mm = std::array<int, 3>;

constexpr float nothing = 0;
// The sheet is 720 wide with a margin of 8 and six slices in a row, at two pixels for each.
constexpr int cell_pixels = (720 - 2 * 8) / 6 * 2, margin_pixels = 16;

std::vector<float> empty_map() {
  return std::vector<float>(mni_grid().voxels(), nothing);
}

/// Gives the voxels within 4 mm of an MNI coordinate along each axis a value.
void add_blob(std::vector<float>& map, const Mm& mm, float value, int reach_z = 4) {
  for (int x = mm[0] - 4; x <= mm[0] + 4; x += 2)
    for (int y = mm[1] - 4; y <= mm[1] + 4; y += 2)
      for (int z = mm[2] - reach_z; z <= mm[2] + reach_z; z += 2)
        map[mni_grid().index((x + 90) / 2, (y + 126) / 2, (z + 72) / 2)] = value;
}

/// A brain that is a box from -60 -90 -40 to 60 60 70 mm.
BrainBackground box_brain() {
  BrainBackground background{empty_map(), empty_map()};
  for (int x = -60; x <= 60; x += 2)
    for (int y = -90; y <= 60; y += 2)
      for (int z = -40; z <= 70; z += 2) {
        const std::size_t voxel = mni_grid().index((x + 90) / 2, (y + 126) / 2, (z + 72) / 2);
        background.brain[voxel] = 1;
        background.anatomy[voxel] = 100;
      }
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

using Colour = std::array<double, 3>;

Colour linear(std::uint32_t rgb) {
  Colour colour{double(red(rgb)), double(green(rgb)), double(blue(rgb))};
  for (double& c : colour)
    c = c / 255 <= 0.04045 ? c / 255 / 12.92 : std::pow((c / 255 + 0.055) / 1.055, 2.4);
  return colour;
}

Colour product(const std::array<Colour, 3>& matrix, const Colour& v) {
  Colour result{};
  for (std::size_t row = 0; row < 3; ++row)
    for (std::size_t column = 0; column < 3; ++column)
      result[row] += matrix[row][column] * v[column];
  return result;
}

/// CIE 1976 L*a*b* of linear sRGB, white D65.
Colour lab(const Colour& rgb) {
  const Colour xyz = product(
      {{{0.4124, 0.3576, 0.1805}, {0.2126, 0.7152, 0.0722}, {0.0193, 0.1192, 0.9505}}}, rgb);
  constexpr Colour white = {0.9505, 1, 1.089};
  Colour f{};
  for (std::size_t i = 0; i < 3; ++i) {
    const double t = std::max(xyz[i], 0.0) / white[i];
    f[i] = t > 0.008856 ? std::cbrt(t) : 7.787 * t + 16.0 / 116;
  }
  return {116 * f[1] - 16, 500 * (f[0] - f[1]), 200 * (f[1] - f[2])};
}

struct Vision {
  const char* name;
  std::array<Colour, 3> seen;  ///< of linear RGB
};

// Viénot, Brettel and Mollon 1999, Color Research and Application 24:243, from linear RGB to linear
// RGB.
constexpr Vision visions[] = {
    {"normal", {{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}}},
    {"protanopia", {{{0.11238, 0.88762, 0}, {0.11238, 0.88762, 0}, {0.00401, -0.00401, 1}}}},
    {"deuteranopia", {{{0.29275, 0.70725, 0}, {0.29275, 0.70725, 0}, {-0.02234, 0.02234, 1}}}},
};

TEST(ColourScale, GrowsBrighterAndKeepsTheSignsApartForAllColourVisions) {
  for (const Vision& vision : visions) {
    SCOPED_TRACE(vision.name);
    const auto seen = [&](int level, bool positive) {
      return lab(product(vision.seen, linear(level_colour(level, positive))));
    };
    double closest = 1000;
    for (int a = 0; a < colour_levels; ++a) {
      for (const bool positive : {true, false})
        if (a > 0) {
          EXPECT_GT(seen(a, positive)[0], seen(a - 1, positive)[0]) << a;
        }
      for (int b = 0; b < colour_levels; ++b) {
        const Colour p = seen(a, true), n = seen(b, false);
        closest = std::min(closest, std::hypot(p[0] - n[0], p[1] - n[1], p[2] - n[2]));
      }
    }
    EXPECT_GT(closest, 35) << "distance of the most alike colours of the two signs";
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
        sheet[std::size_t(y * stride + x)] = rgb | 0xFF000000U;
        expected.push_back(rgb);
      }
    const std::string png = png_of(sheet.data(), width, height, stride, 7559);
    EXPECT_EQ(png[25] == 3, colours <= 256) << "whether it has a palette";
    EXPECT_EQ(decoded(png).values, expected);
  }
}

}  // namespace
