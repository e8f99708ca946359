#include "engine/report/colour_scale.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "engine/base/wording.h"
#include "engine/report/axis.h"

namespace kvo::report {

namespace {

constexpr std::array<std::array<int, 3>, 5> positive_stops = {{{0xA8, 0x2A, 0x00},
                                                               {0xDC, 0x55, 0x00},
                                                               {0xF5, 0x8C, 0x00},
                                                               {0xFF, 0xC2, 0x24},
                                                               {0xFF, 0xF4, 0x8C}}};
constexpr std::array<std::array<int, 3>, 5> negative_stops = {{{0x1B, 0x3F, 0xB0},
                                                               {0x1E, 0x6E, 0xDC},
                                                               {0x1F, 0xA0, 0xF0},
                                                               {0x5C, 0xCE, 0xFA},
                                                               {0xB4, 0xF2, 0xFF}}};

constexpr double half_width = 230, gap = 36, thickness = 10;
constexpr Rgb text_colour{0.88, 0.88, 0.88};
// Two labels of ticks need so much room.
constexpr double label_room = 30;

}  // namespace

std::uint32_t level_colour(int level, bool positive) {
  const auto& stops = positive ? positive_stops : negative_stops;
  const double at = double(level) / (colour_levels - 1) * double(stops.size() - 1);
  const std::size_t stop = std::min(std::size_t(at), stops.size() - 2);
  std::uint32_t rgb = 0;
  for (std::size_t channel = 0; channel < 3; ++channel) {
    const double from = stops[stop][channel], to = stops[stop + 1][channel];
    rgb = rgb << 8 | std::uint32_t(std::lround(from + (at - double(stop)) * (to - from)));
  }
  return rgb;
}

ColourScale::ColourScale(std::span<const float> map) {
  for (const float z : map) {
    if (z == 0 || !std::isfinite(z)) continue;
    const double magnitude = std::abs(double(z));
    const bool first = !has_positive_ && !has_negative_;
    low_ = first ? magnitude : std::min(low_, magnitude);
    high_ = first ? magnitude : std::max(high_, magnitude);
    (z > 0 ? has_positive_ : has_negative_) = true;
  }
}

std::uint32_t ColourScale::colour(double magnitude, bool positive) const {
  const double range = high_ - low_;
  const double share = range > 0 ? (magnitude - low_) / range : 1;
  return level_colour(int(std::lround(std::clamp(share, 0.0, 1.0) * (colour_levels - 1))),
                      positive);
}

std::string ColourScale::words(const std::string& statistic) const {
  if (!has_positive_ && !has_negative_) return "Nothing is above the thresholds.";
  std::string text;
  if (has_positive_) text += "positive " + statistic + " in orange to yellow";
  if (has_positive_ && has_negative_) text += ", ";
  if (has_negative_) text += "negative " + statistic + " in blue to cyan with a white rim";
  text += "; magnitudes from " + decimal_text(low_, 2) + " to " + decimal_text(high_, 2) + ".";
  text[0] = char(std::toupper(text[0]));
  return text;
}

void ColourScale::draw_half(const Canvas& canvas, double x, double y, const std::string& title,
                            bool positive) const {
  canvas.text(x + half_width / 2, y + 6, title,
              {.size = 10.5, .colour = text_colour, .align = Align::centre});
  const double top = y + 14;
  // Numbers grow from left to right, so that the bar of the negative ones begins with the largest
  // magnitude.
  const int columns = int(half_width * picture_scale);
  for (int column = 0; column < columns; ++column) {
    const double share = (column + 0.5) / columns;
    const int level = int((positive ? share : 1 - share) * colour_levels);
    const std::uint32_t rgb = level_colour(std::min(level, colour_levels - 1), positive);
    canvas.colour(rgb_of(rgb));
    canvas.rectangle(x + double(column) / picture_scale, top, 1.0 / picture_scale, thickness);
  }
  if (!positive) {
    cairo_t* context = canvas.context();
    canvas.colour(rgb_of(rim_colour));
    cairo_set_line_width(context, 1);
    cairo_rectangle(context, x - 0.5, top - 0.5, half_width + 1, thickness + 1);
    cairo_stroke(context);
  }
  const auto tick = [&](double magnitude, const std::string& label) {
    const double range = high_ - low_;
    const double share = range > 0 ? (magnitude - low_) / range : 1;
    const double place = x + (positive ? share : 1 - share) * half_width;
    canvas.colour(text_colour);
    canvas.rectangle(std::round(place * 2) / 2 - 0.5, top + thickness, 1, 3);
    canvas.text(place, top + thickness + 9, label,
                {.size = 10, .colour = text_colour, .align = Align::centre});
  };
  const double sign = positive ? 1 : -1;
  tick(high_, decimal_text(sign * high_, 2));
  if (high_ == low_) return;
  tick(low_, decimal_text(sign * low_, 2));
  const double room = label_room / half_width * (high_ - low_);
  const Ticks ticks = ticks_between(low_, high_, 6);
  for (const double value : ticks.values)
    if (value - low_ > room && high_ - value > room)
      tick(value, decimal_text(sign * value, ticks.decimals));
}

void ColourScale::draw_bar(const Canvas& canvas, double x, double y,
                           const std::string& statistic) const {
  if (has_positive_ && has_negative_) {
    draw_half(canvas, x - gap / 2 - half_width, y, "Negative " + statistic, false);
    draw_half(canvas, x + gap / 2, y, "Positive " + statistic, true);
  } else if (has_positive_ || has_negative_) {
    draw_half(canvas, x - half_width / 2, y,
              (has_positive_ ? "Positive " : "Negative ") + statistic, has_positive_);
  }
}

}  // namespace kvo::report
