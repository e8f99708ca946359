#pragma once

// A sheet to draw on, in pixels of a page, and the PNG file that it becomes.

#include <cairo.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "engine/report/picture.h"
#include "engine/report/report_layer.h"
#include "util/handles.h"

namespace kvo::report {

/// Pixels of the file for each of the page, along either axis.
inline constexpr int picture_scale = 2;

struct Rgb {
  double red, green, blue;  ///< 0 to 1
};

/// The colour 0xRRGGBB.
constexpr Rgb rgb_of(std::uint32_t colour) {
  return {double(colour >> 16 & 0xFFU) / 255, double(colour >> 8 & 0xFFU) / 255,
          double(colour & 0xFFU) / 255};
}

enum class Align { left, centre, right };

struct TextStyle {
  double size = 11;  ///< height of the font in pixels of a page
  Rgb colour{0, 0, 0};
  Align align = Align::left;  ///< of the text to the x that it is written at
  bool bold = false;
  double width = 0;  ///< when above 0, a longer text is cut with an ellipsis
  double rim = 0;    ///< width of a black line around the letters
};

class Canvas {
 public:
  Canvas(int width, int height, Rgb background);

  [[nodiscard]] cairo_t* context() const { return context_.get(); }
  [[nodiscard]] int width() const { return width_; }
  [[nodiscard]] int height() const { return height_; }

  void colour(Rgb rgb) const;
  void rectangle(double x, double y, double width, double height) const;
  void line(double x1, double y1, double x2, double y2, double thickness) const;
  /// Writes one line of plain text, whatever it holds, its middle at y.
  void text(double x, double y, std::string_view text, const TextStyle& style) const;
  /// The pixels of the file, 0x00RRGGBB; row by row, `stride` of them from row to row.
  [[nodiscard]] std::uint32_t* pixels() const;
  [[nodiscard]] int stride() const;

  /// The picture of what has been drawn.
  [[nodiscard]] Picture picture(std::string alt) const;

 private:
  int width_, height_;
  std::unique_ptr<cairo_surface_t, Q_call<cairo_surface_destroy>> surface_;
  std::unique_ptr<cairo_t, Q_call<cairo_destroy>> context_;
};

}  // namespace kvo::report
