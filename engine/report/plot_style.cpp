#include "engine/report/plot_style.h"

#include <array>
#include <utility>

#include "engine/base/wording.h"

namespace kvo::report {

void draw_dashed(const Canvas& canvas, double x1, double y1, double x2, double y2) {
  constexpr std::array<double, 2> dashes = {4, 3};
  cairo_save(canvas.context());
  cairo_set_dash(canvas.context(), dashes.data(), int(dashes.size()), 0);
  canvas.line(x1, y1, x2, y2, 1);
  cairo_restore(canvas.context());
}

void draw_horizontal_axis(const Canvas& canvas, const Axis& axis, double y,
                          std::string_view title) {
  canvas.colour(dim_ink);
  canvas.line(axis.from, y, axis.to, y, 1);
  const Ticks ticks = ticks_between(axis.low, axis.high, 6);
  for (const double value : ticks.values) {
    canvas.colour(dim_ink);
    canvas.line(axis.at(value), y, axis.at(value), y + 4, 1);
    canvas.text(axis.at(value), y + 12, decimal_text(value, ticks.decimals),
                {.size = 10, .colour = ink, .align = Align::centre});
  }
  canvas.text((axis.from + axis.to) / 2, y + 30, title,
              {.size = 11, .colour = ink, .align = Align::centre, .width = axis.to - axis.from});
}

Picture plot_picture(const Canvas& canvas, std::string alt) {
  // The colours above are multiples of it.
  constexpr std::uint32_t step = 15;
  std::uint32_t* pixels = canvas.pixels();
  for (int y = 0; y < canvas.height() * picture_scale; ++y)
    for (int x = 0; x < canvas.width() * picture_scale; ++x) {
      std::uint32_t& pixel = pixels[std::ptrdiff_t(y) * canvas.stride() + x];
      std::uint32_t rounded = 0;
      for (const int shift : {16, 8, 0})
        rounded |= ((pixel >> shift & 0xFFU) + step / 2) / step * step << shift;
      pixel = rounded;
    }
  return canvas.picture(std::move(alt));
}

}  // namespace kvo::report
