#include <algorithm>
#include <cmath>
#include <numbers>

#include "engine/base/wording.h"
#include "engine/report/axis.h"
#include "engine/report/plot_style.h"
#include "engine/report/plots.h"
#include "util/text.h"

namespace kvo::report {

namespace {

constexpr int sheet_width = 720, margin = 14;
constexpr double name_width = 196, n_right = 252, plot_left = 266, plot_right = 500;
constexpr double estimate_right = 634, weight_right = sheet_width - margin;
/// Where the words begin of a study that has no estimate.
constexpr double known_left = plot_right + 12;
constexpr int header_height = 24, title_height = 26, axis_height = 46, line_height = 20;

/// How large the rows are, and how many of them a picture has.
struct Rows {
  int height;
  double font;
  std::size_t in_picture;
  int weight_decimals;
};

Rows rows_for(std::size_t studies) {
  if (studies <= 40) return {18, 11, 40, 1};
  return {13, 9, 60, 2};
}

/// From the lowest to the highest interval, 0 included; intervals much wider than the others do not
/// press the rest together.
Axis axis_for(const ForestPlot& plot) {
  std::vector<double> halves;
  double low = 0, high = 0, lowest = 0, highest = 0, lowest_mark = 0, highest_mark = 0;
  for (const ForestRow& row : plot.rows) {
    if (!row.known.empty()) {
      const double mark = row.mark.value_or(0);
      if (!std::isfinite(mark)) continue;
      lowest_mark = std::min(lowest_mark, mark);
      highest_mark = std::max(highest_mark, mark);
      continue;
    }
    const double half = (row.interval.high - row.interval.low) / 2;
    if (!std::isfinite(row.g) || !std::isfinite(half)) continue;
    halves.push_back(half);
    low = std::min(low, row.interval.low);
    high = std::max(high, row.interval.high);
    lowest = std::min(lowest, row.g);
    highest = std::max(highest, row.g);
  }
  if (!halves.empty()) {
    const auto middle = halves.begin() + std::ptrdiff_t(halves.size() / 2);
    std::nth_element(halves.begin(), middle, halves.end());
    low = std::max(low, lowest - 3 * *middle);
    high = std::min(high, highest + 3 * *middle);
  }
  low = std::min(low, lowest_mark);
  high = std::max(high, highest_mark);
  for (const auto& interval : {plot.prediction.value_or(Interval{0, 0}),
                               plot.pooled ? plot.pooled_interval : Interval{0, 0}}) {
    if (std::isfinite(interval.low)) low = std::min(low, interval.low);
    if (std::isfinite(interval.high)) high = std::max(high, interval.high);
  }
  if (high <= low) high = low + 1;
  const double space = 0.04 * (high - low);
  return {low - space, high + space, plot_left, plot_right};
}

std::string interval_text(const Interval& interval) {
  std::string text = "[";
  text += decimal_text(interval.low, 2) + ", " + decimal_text(interval.high, 2) + "]";
  return text;
}

std::string estimate_text(double g, const Interval& interval) {
  return decimal_text(g, 2) + " " + interval_text(interval);
}

/// The line of an interval; an arrow where it goes on beyond the axis.
void draw_interval(const Canvas& canvas, const Axis& axis, const Interval& interval, double y) {
  const double low = axis.at(std::max(interval.low, axis.low));
  const double high = axis.at(std::min(interval.high, axis.high));
  canvas.line(low, y, high, y, 1);
  constexpr double arrow = 4;
  const auto draw_arrow = [&](double x, double back) {
    canvas.line(x, y, x + back, y - arrow / 2, 1);
    canvas.line(x, y, x + back, y + arrow / 2, 1);
  };
  if (interval.low < axis.low) draw_arrow(low, arrow);
  if (interval.high > axis.high) draw_arrow(high, -arrow);
}

/// What the pictures of a plot have in common.
struct Layout {
  Axis axis;
  Rows rows;
  double most_weight;  ///< of a study
};

/// What is known of a study that has no estimate.
void draw_known(const Canvas& canvas, const Layout& layout, const ForestRow& row, double y) {
  canvas.text(known_left, y, row.known,
              {.size = layout.rows.font, .colour = dim_ink, .width = weight_right - known_left});
  if (!row.mark || !layout.axis.shows(*row.mark)) return;
  cairo_t* context = canvas.context();
  cairo_new_sub_path(context);
  cairo_arc(context, layout.axis.at(*row.mark), y, 0.2 * layout.rows.height, 0,
            2 * std::numbers::pi);
  cairo_set_line_width(context, 1);
  canvas.colour(data_colour);
  cairo_stroke(context);
}

void draw_row(const Canvas& canvas, const Layout& layout, const ForestRow& row, double y) {
  const Axis& axis = layout.axis;
  const Rows& rows = layout.rows;
  const auto cell = [&](double x, const std::string& text) {
    canvas.text(x, y, text, {.size = rows.font, .colour = ink, .align = Align::right});
  };
  canvas.text(margin, y, row.study, {.size = rows.font, .colour = ink, .width = name_width});
  if (row.n > 0) cell(n_right, Q_count_text(row.n));
  if (!row.known.empty()) return draw_known(canvas, layout, row, y);
  cell(estimate_right, estimate_text(row.g, row.interval));
  cell(weight_right, decimal_text(row.weight, rows.weight_decimals));
  if (!std::isfinite(row.g) || !std::isfinite(row.interval.low + row.interval.high)) return;
  canvas.colour(data_colour);
  draw_interval(canvas, axis, row.interval, y);
  const double share =
      layout.most_weight > 0 && row.weight > 0 ? row.weight / layout.most_weight : 0;
  const double side = std::max(2.0, 0.72 * rows.height * std::sqrt(share));
  if (axis.shows(row.g)) canvas.rectangle(axis.at(row.g) - side / 2, y - side / 2, side, side);
}

void draw_diamond(const Canvas& canvas, const Axis& axis, const ForestPlot& plot, double y) {
  constexpr double half_height = 6;
  cairo_t* context = canvas.context();
  canvas.colour(pooled_colour);
  cairo_move_to(context, axis.at(plot.pooled_interval.low), y);
  cairo_line_to(context, axis.at(*plot.pooled), y - half_height);
  cairo_line_to(context, axis.at(plot.pooled_interval.high), y);
  cairo_line_to(context, axis.at(*plot.pooled), y + half_height);
  cairo_close_path(context);
  cairo_fill(context);
}

/// The lines of the pooled estimate and of the prediction interval, the first around y.
void draw_pooled(const Canvas& canvas, const Axis& axis, const ForestPlot& plot, double y) {
  const double wide = n_right - margin;
  if (plot.pooled) {
    canvas.text(margin, y, "Pooled estimate",
                {.size = 11, .colour = ink, .bold = true, .width = wide});
    canvas.text(estimate_right, y, estimate_text(*plot.pooled, plot.pooled_interval),
                {.size = 11, .colour = ink, .align = Align::right, .bold = true});
    if (std::isfinite(*plot.pooled + plot.pooled_interval.low + plot.pooled_interval.high))
      draw_diamond(canvas, axis, plot, y);
    y += line_height;
  }
  if (plot.prediction) {
    canvas.text(margin, y, "95 % prediction interval", {.size = 11, .colour = ink, .width = wide});
    canvas.text(estimate_right, y, interval_text(*plot.prediction),
                {.size = 11, .colour = ink, .align = Align::right});
    canvas.colour(pooled_colour);
    if (std::isfinite(plot.prediction->low + plot.prediction->high)) {
      draw_interval(canvas, axis, *plot.prediction, y);
      for (const double end : {plot.prediction->low, plot.prediction->high})
        if (axis.shows(end)) canvas.line(axis.at(end), y - 3, axis.at(end), y + 3, 1);
    }
  }
}

void draw_frame(const Canvas& canvas, const Axis& axis, const ForestPlot& plot, double top,
                double bottom) {
  canvas.colour(faint);
  if (axis.shows(0)) canvas.line(axis.at(0), top, axis.at(0), bottom, 1);
  if (plot.pooled && axis.shows(*plot.pooled)) {
    canvas.colour(pooled_colour);
    draw_dashed(canvas, axis.at(*plot.pooled), top, axis.at(*plot.pooled), bottom);
  }
  draw_horizontal_axis(canvas, axis, bottom, plot.axis);
}

void draw_header(const Canvas& canvas, const ForestPlot& plot, double y) {
  const auto title = [&](double x, const char* text, Align align) {
    canvas.text(x, y, text, {.size = 10.5, .colour = dim_ink, .align = align, .bold = true});
  };
  title(margin, "Study", Align::left);
  title(n_right, "n", Align::right);
  const bool has_estimates = std::any_of(plot.rows.begin(), plot.rows.end(),
                                         [](const ForestRow& row) { return row.known.empty(); });
  if (has_estimates) {
    title(estimate_right, "Estimate [95 % CI]", Align::right);
    title(weight_right, "Weight (%)", Align::right);
  } else {
    title(known_left, "What is known", Align::left);
  }
  canvas.colour(faint);
  canvas.line(margin, y + header_height / 2.0, weight_right, y + header_height / 2.0, 1);
}

std::string words(const ForestPlot& plot, std::size_t begin, std::size_t end) {
  std::string text = "Forest plot of " + Q_counted(plot.rows.size(), "study", "studies");
  if (end - begin < plot.rows.size())
    text += ", of which these are " + Q_count_text(begin + 1) + " to " + Q_count_text(end);
  if (plot.pooled)
    text += ". Pooled " + plot.axis + " " + decimal_text(*plot.pooled, 2) + ", 95 % interval " +
            decimal_text(plot.pooled_interval.low, 2) + " to " +
            decimal_text(plot.pooled_interval.high, 2);
  return text + ".";
}

Picture draw_page(const ForestPlot& plot, const Layout& layout, std::size_t begin,
                  std::size_t end) {
  const Axis& axis = layout.axis;
  const Rows& rows = layout.rows;
  const bool last = end == plot.rows.size();
  const int head = margin / 2 + (plot.title.empty() ? 0 : title_height) + header_height;
  const int pooled_lines =
      last ? int(plot.pooled.has_value()) + int(plot.prediction.has_value()) : 0;
  const int body = int(end - begin) * rows.height + 6 + pooled_lines * line_height;
  const bool has_foot = last && !plot.heterogeneity.empty();
  const Canvas canvas(sheet_width, head + body + axis_height + (has_foot ? line_height : 0), paper);
  if (!plot.title.empty())
    canvas.text(margin, margin / 2.0 + title_height / 2.0, plot.title,
                {.size = 13, .colour = ink, .bold = true, .width = sheet_width - 2.0 * margin});
  draw_header(canvas, plot, head - header_height / 2.0);
  draw_frame(canvas, axis, plot, head, head + body);
  double y = head + 3 + rows.height / 2.0;
  for (std::size_t i = begin; i < end; ++i, y += rows.height)
    draw_row(canvas, layout, plot.rows[i], y);
  if (last) draw_pooled(canvas, axis, plot, y - rows.height / 2.0 + line_height / 2.0);
  if (has_foot)
    canvas.text(margin, canvas.height() - line_height / 2.0 - 2, plot.heterogeneity,
                {.size = 10.5, .colour = ink, .width = sheet_width - 2.0 * margin});
  return plot_picture(canvas, words(plot, begin, end));
}

}  // namespace

std::vector<Picture> forest_plot(const ForestPlot& plot) {
  Layout layout{axis_for(plot), rows_for(plot.rows.size()), 0};
  for (const ForestRow& row : plot.rows)
    if (row.weight > layout.most_weight) layout.most_weight = row.weight;
  const std::size_t in_picture = layout.rows.in_picture;
  std::vector<Picture> pictures;
  for (std::size_t begin = 0; begin < plot.rows.size(); begin += in_picture)
    pictures.push_back(
        draw_page(plot, layout, begin, std::min(begin + in_picture, plot.rows.size())));
  return pictures;
}

}  // namespace kvo::report
