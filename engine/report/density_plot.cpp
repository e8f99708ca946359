#include <algorithm>
#include <array>
#include <cmath>

#include "engine/base/wording.h"
#include "engine/report/axis.h"
#include "engine/report/plot_style.h"
#include "engine/report/plots.h"

namespace kvo::report {

namespace {

constexpr int sheet_width = 720, plot_height = 150, axis_height = 46, margin = 14;
constexpr double plot_left = 120, plot_right = 600;
constexpr Rgb interval_colour = rgb_of(0xE1F0FF);

/// The path of a curve, a density for each x.
template <typename Density>
void trace(const Canvas& canvas, const Axis& x, const Axis& y, const Density& density) {
  constexpr double step = 0.5;
  for (double at = x.from; at <= x.to; at += step)
    cairo_line_to(canvas.context(), at,
                  y.at(density(x.low + (at - x.from) / (x.to - x.from) * (x.high - x.low))));
}

double density_at(const DensityPlot& plot, double x) {
  const auto& points = plot.points;
  auto after = std::upper_bound(points.begin(), points.end(), x,
                                [](double at, const DensityPoint& point) { return at < point.x; });
  after = std::clamp(after, points.begin() + 1, points.end() - 1);
  const DensityPoint &low = *(after - 1), &high = *after;
  const double part = std::clamp((x - low.x) / (high.x - low.x), 0.0, 1.0);
  return low.density + part * (high.density - low.density);
}

}  // namespace

Picture density_plot(const DensityPlot& plot) {
  const Canvas canvas(sheet_width, margin + plot_height + axis_height, paper);
  const double bottom = margin + plot_height;
  const Axis x{plot.points.front().x, plot.points.back().x, plot_left, plot_right};
  const Axis y{0, 1.06, bottom, margin};
  const auto shown = [&](double value) { return x.at(std::clamp(value, x.low, x.high)); };
  canvas.colour(interval_colour);
  canvas.rectangle(shown(plot.interval.low), margin,
                   shown(plot.interval.high) - shown(plot.interval.low), plot_height);
  canvas.colour(faint);
  if (x.shows(0)) canvas.line(x.at(0), margin, x.at(0), bottom, 1);
  canvas.colour(pooled_colour);
  canvas.line(shown(plot.estimate), margin, shown(plot.estimate), bottom, 1.2);
  cairo_t* context = canvas.context();
  const double sd = (plot.interval.high - plot.interval.low) / (2 * interval_z);
  const std::array dashes{4.0, 3.0};
  cairo_save(context);
  canvas.colour(dim_ink);
  cairo_set_line_width(context, 1);
  cairo_set_dash(context, dashes.data(), int(dashes.size()), 0);
  trace(canvas, x, y, [&](double at) {
    const double z = (at - plot.estimate) / sd;
    return std::exp(-z * z / 2);
  });
  cairo_stroke(context);
  cairo_restore(context);
  canvas.colour(data_colour);
  cairo_set_line_width(context, 1.8);
  trace(canvas, x, y, [&](double at) { return density_at(plot, at); });
  cairo_stroke(context);
  draw_horizontal_axis(canvas, x, bottom, plot.axis);
  return plot_picture(canvas, "Posterior density of the " + plot.axis + " around the estimate of " +
                                  decimal_text(plot.estimate, 2) + ", 95 % interval " +
                                  decimal_text(plot.interval.low, 2) + " to " +
                                  decimal_text(plot.interval.high, 2) + ".");
}

}  // namespace kvo::report
