#include "pixels.h"

#include <cairo.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string_view>

namespace {

cairo_status_t read_some(void* rest, unsigned char* bytes, unsigned int length) {
  auto& left = *static_cast<std::string_view*>(rest);
  if (left.size() < length) return CAIRO_STATUS_READ_ERROR;
  std::memcpy(bytes, left.data(), length);
  left.remove_prefix(length);
  return CAIRO_STATUS_SUCCESS;
}

}  // namespace

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

Area area(const Pixels& pixels, const std::function<bool(std::uint32_t)>& has_colour, int left,
          int right, int top, int bottom) {
  Area found;
  for (int y = top; y < bottom; ++y)
    for (int x = left; x < right; ++x)
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

Area area(const Pixels& pixels, const std::function<bool(std::uint32_t)>& has_colour) {
  return area(pixels, has_colour, 0, pixels.width, 0, pixels.height);
}
