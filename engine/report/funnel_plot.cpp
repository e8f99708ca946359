#include <algorithm>
#include <cmath>
#include <numbers>

#include "engine/base/wording.h"
#include "engine/report/plot_style.h"
#include "engine/report/plots.h"
#include "util/text.h"

namespace kvo::report {

namespace {

constexpr int sheet_width = 720, title_height = 28, plot_height = 340, axis_height = 46;
constexpr int note_height = 22, margin = 14;
constexpr double plot_left = 72, plot_right = 700;
constexpr double radius = 3.6;
constexpr Rgb region_colour = rgb_of(0xE1F0FF);

bool is_shown(const FunnelPoint& point) {
  return std::isfinite(point.g) && std::isfinite(point.standard_error) && point.standard_error >= 0;
}

struct Axes {
  Axis g, error;
};

Axes axes_for(const FunnelPlot& plot, double top) {
  double error = 0;
  for (const FunnelPoint& point : plot.points)
    if (is_shown(point)) error = std::max(error, point.standard_error);
  error = error > 0 ? error * 1.06 : 1;
  double low = plot.pooled - interval_z * error, high = plot.pooled + interval_z * error;
  for (const FunnelPoint& point : plot.points) {
    if (!is_shown(point)) continue;
    low = std::min(low, point.g);
    high = std::max(high, point.g);
  }
  const double space = 0.04 * (high - low);
  return {{low - space, high + space, plot_left, plot_right}, {0, error, top, top + plot_height}};
}

void draw_region(const Canvas& canvas, const Axes& axes, double pooled) {
  const double reach = interval_z * axes.error.high;
  const double tip = axes.g.at(pooled), left = axes.g.at(pooled - reach),
               right = axes.g.at(pooled + reach), top = axes.error.from, bottom = axes.error.to;
  cairo_t* context = canvas.context();
  canvas.colour(region_colour);
  cairo_move_to(context, tip, top);
  cairo_line_to(context, left, bottom);
  cairo_line_to(context, right, bottom);
  cairo_close_path(context);
  cairo_fill(context);
  canvas.colour(dim_ink);
  draw_dashed(canvas, tip, top, left, bottom);
  draw_dashed(canvas, tip, top, right, bottom);
  canvas.colour(pooled_colour);
  canvas.line(tip, top, tip, bottom, 1.2);
}

void draw_error_axis(const Canvas& canvas, const Axis& axis) {
  canvas.colour(dim_ink);
  canvas.line(plot_left, axis.from, plot_left, axis.to, 1);
  const Ticks ticks = ticks_between(axis.low, axis.high, 6);
  for (const double value : ticks.values) {
    canvas.colour(dim_ink);
    canvas.line(plot_left - 4, axis.at(value), plot_left, axis.at(value), 1);
    canvas.text(plot_left - 8, axis.at(value), decimal_text(value, ticks.decimals),
                {.size = 10, .colour = ink, .align = Align::right});
  }
  cairo_save(canvas.context());
  cairo_translate(canvas.context(), margin + 4, (axis.from + axis.to) / 2);
  cairo_rotate(canvas.context(), -std::numbers::pi / 2);
  canvas.text(0, 0, "Standard error", {.size = 11, .colour = ink, .align = Align::centre});
  cairo_restore(canvas.context());
}

void draw_points(const Canvas& canvas, const Axes& axes, const FunnelPlot& plot) {
  cairo_t* context = canvas.context();
  cairo_set_line_width(context, 1);
  for (const FunnelPoint& point : plot.points) {
    if (!is_shown(point)) continue;
    cairo_new_sub_path(context);
    cairo_arc(context, axes.g.at(point.g), axes.error.at(point.standard_error), radius, 0,
              2 * std::numbers::pi);
    canvas.colour(data_colour);
    cairo_fill_preserve(context);
    canvas.colour(paper);
    cairo_stroke(context);
  }
}

}  // namespace

Picture funnel_plot(const FunnelPlot& plot) {
  const int top = margin + (plot.title.empty() ? 0 : title_height);
  const Canvas canvas(
      sheet_width, top + plot_height + axis_height + (plot.note.empty() ? 0 : note_height), paper);
  const Axes axes = axes_for(plot, top);
  if (!plot.title.empty())
    canvas.text(margin, margin / 2.0 + title_height / 2.0, plot.title,
                {.size = 13, .colour = ink, .bold = true, .width = sheet_width - 2.0 * margin});
  draw_region(canvas, axes, plot.pooled);
  draw_horizontal_axis(canvas, axes.g, axes.error.to, plot.axis);
  draw_error_axis(canvas, axes.error);
  draw_points(canvas, axes, plot);
  if (!plot.note.empty())
    canvas.text(margin, canvas.height() - note_height / 2.0 - 2, plot.note,
                {.size = 10.5, .colour = ink, .width = sheet_width - 2.0 * margin});
  return plot_picture(
      canvas, "Funnel plot of " + Q_counted(plot.points.size(), "study", "studies") +
                  " around the pooled " + plot.axis + " of " + decimal_text(plot.pooled, 2) + ".");
}

}  // namespace kvo::report
