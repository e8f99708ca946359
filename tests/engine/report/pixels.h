#pragma once

// Pictures as their readers decode them.

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

struct Pixels {
  int width = 0, height = 0;
  std::vector<std::uint32_t> values;  ///< 0xRRGGBB, row by row

  [[nodiscard]] std::uint32_t at(int x, int y) const {
    return values[std::size_t(y) * std::size_t(width) + std::size_t(x)];
  }
};

/// Decodes a PNG file with libpng; a failure of the test when it cannot.
Pixels decoded(const std::string& png);

/// Where the pixels of some colours are.
struct Area {
  int pixels = 0;
  double x = 0, y = 0;  ///< the middle of them all, in pixels
};

/// The pixels of the columns from left up to right whose colour is so.
Area area(const Pixels& pixels, const std::function<bool(std::uint32_t)>& has_colour, int left,
          int right, int top, int bottom);
Area area(const Pixels& pixels, const std::function<bool(std::uint32_t)>& has_colour);

inline int red(std::uint32_t rgb) {
  return int(rgb >> 16 & 0xFFU);
}
inline int green(std::uint32_t rgb) {
  return int(rgb >> 8 & 0xFFU);
}
inline int blue(std::uint32_t rgb) {
  return int(rgb & 0xFFU);
}
inline bool is_warm(std::uint32_t rgb) {
  return red(rgb) > blue(rgb) + 60;
}
inline bool is_cold(std::uint32_t rgb) {
  return blue(rgb) > red(rgb) + 60;
}
