#pragma once

// The colours of a map: dark orange to pale yellow for positive values, dark blue to pale cyan,
// with a white rim around each area, for negative ones. Either grows brighter with the magnitude,
// and they differ in blue against yellow, which people with any of the usual colour vision
// deficiencies tell apart.

#include <cstdint>
#include <span>
#include <string>

#include "engine/report/canvas.h"
#include "engine/report/report_layer.h"

namespace kvo::report {

/// What negative areas are rimmed with, so that they differ by more than hue.
inline constexpr std::uint32_t rim_colour = 0xFFFFFF;

/// How many colours either sign has.
inline constexpr int colour_levels = 64;

class ColourScale {
 public:
  /// The scale from the smallest to the largest magnitude of a map; 0 and what is not finite do not
  /// count.
  explicit ColourScale(std::span<const float> map);

  [[nodiscard]] bool has_positive() const { return has_positive_; }
  [[nodiscard]] bool has_negative() const { return has_negative_; }
  [[nodiscard]] double low() const { return low_; }
  [[nodiscard]] double high() const { return high_; }
  /// The colour of a magnitude, 0xRRGGBB.
  [[nodiscard]] std::uint32_t colour(double magnitude, bool positive) const;

  /// What is to be seen in a map of the scale, in words.
  [[nodiscard]] std::string words(const std::string& statistic) const;

  /// Draws a bar for each sign that the map has, with labelled ticks, for light texts on a dark
  /// ground. x is its middle, y its upper edge; it is `bar_height` high.
  void draw_bar(const Canvas& canvas, double x, double y, const std::string& statistic) const;
  static constexpr int bar_height = 38;

 private:
  void draw_half(const Canvas& canvas, double x, double y, const std::string& title,
                 bool positive) const;

  double low_ = 0, high_ = 0;
  bool has_positive_ = false, has_negative_ = false;
};

/// The colour of a level from 0 to colour_levels - 1.
std::uint32_t level_colour(int level, bool positive);

}  // namespace kvo::report
