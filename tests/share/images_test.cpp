// The icon and the lettering as the program has them: size, transparency, and that they show what
// they are drawn for on the backgrounds that windows have.

#include "resources/images.h"

#include <gtest/gtest.h>

#include <cmath>

#include "util/handles.h"

namespace {

struct Pixel {
  int red, green, blue, alpha;
};

Pixel pixel_at(const GdkPixbuf* image, int x, int y) {
  const guchar* bytes = gdk_pixbuf_read_pixels(image) + y * gdk_pixbuf_get_rowstride(image) + 4 * x;
  return {bytes[0], bytes[1], bytes[2], bytes[3]};
}

/// The part of the pixels, 0 to 1, for which the condition holds.
template <typename Condition>
double part_of(const GdkPixbuf* image, Condition condition) {
  int n = 0;
  const int width = gdk_pixbuf_get_width(image);
  const int height = gdk_pixbuf_get_height(image);
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) n += condition(pixel_at(image, x, y)) ? 1 : 0;
  return double(n) / width / height;
}

TEST(Images, HaveTheirSizeTransparencyAndColours) {
  const struct {
    const char* name;
    const guint8* bytes;
    int width, height;
    double least_transparent, least_opaque, least_warm;
  } cases[] = {
      {"icon", image_kvo, 64, 64, 0.2, 0.5, 0.05},
      {"lettering", image_kvo_letters, 208, 86, 0.6, 0.1, 0.005},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const Q_object<GdkPixbuf> image(kvo_image(c.bytes));
    ASSERT_TRUE(image);
    EXPECT_EQ(gdk_pixbuf_get_width(image.get()), c.width);
    EXPECT_EQ(gdk_pixbuf_get_height(image.get()), c.height);
    ASSERT_TRUE(gdk_pixbuf_get_has_alpha(image.get()));
    ASSERT_EQ(gdk_pixbuf_get_bits_per_sample(image.get()), 8);
    EXPECT_EQ(pixel_at(image.get(), 0, 0).alpha, 0);
    EXPECT_EQ(pixel_at(image.get(), c.width - 1, c.height - 1).alpha, 0);
    EXPECT_GE(part_of(image.get(), [](Pixel p) { return p.alpha == 0; }), c.least_transparent);
    EXPECT_GE(part_of(image.get(), [](Pixel p) { return p.alpha == 255; }), c.least_opaque);
    const auto warm = [](Pixel p) { return p.alpha == 255 && p.red > 180 && p.blue < p.red - 100; };
    EXPECT_GE(part_of(image.get(), warm), c.least_warm);
  }
}

double linear(int sample) {
  const double s = sample / 255.0;
  return s <= 0.04045 ? s / 12.92 : std::pow((s + 0.055) / 1.055, 2.4);
}

/// Relative luminance of WCAG 2.1.
double luminance(Pixel p) {
  return 0.2126 * linear(p.red) + 0.7152 * linear(p.green) + 0.0722 * linear(p.blue);
}

TEST(Images, LetteringIsLegibleOnWhiteAndOnLightGray) {
  const Q_object<GdkPixbuf> image(kvo_image(image_kvo_letters));
  for (const int background : {255, 0xED}) {
    const double behind = luminance({background, background, background, 255});
    // The name's strokes are cool and dark: at least 7:1, the enhanced contrast of WCAG 2.1.
    const auto legible = [behind](Pixel p) {
      return p.alpha == 255 && p.blue > p.red && (behind + 0.05) / (luminance(p) + 0.05) >= 7;
    };
    EXPECT_GE(part_of(image.get(), legible), 0.08) << "on gray " << background;
  }
}

}  // namespace
