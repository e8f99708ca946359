#include "engine/report/canvas.h"

#include <pango/pangocairo.h>

#include <cmath>
#include <new>

#include "engine/base/wording.h"
#include "engine/report/png.h"

namespace kvo::report {

namespace {

constexpr const char* font_name = "DejaVu Sans";
// A page has 96 pixels an inch.
constexpr double pixels_per_metre = 96 / 0.0254;

/// The same letters whatever the desktop's settings are.
void set_plain_text_rendering(PangoLayout* layout) {
  const std::unique_ptr<cairo_font_options_t, Q_call<cairo_font_options_destroy>> options(
      cairo_font_options_create());
  cairo_font_options_set_antialias(options.get(), CAIRO_ANTIALIAS_GRAY);
  cairo_font_options_set_hint_style(options.get(), CAIRO_HINT_STYLE_NONE);
  cairo_font_options_set_hint_metrics(options.get(), CAIRO_HINT_METRICS_OFF);
  PangoContext* context = pango_layout_get_context(layout);
  pango_cairo_context_set_font_options(context, options.get());
  pango_cairo_context_set_resolution(context, 96);
  pango_layout_context_changed(layout);
}

}  // namespace

Canvas::Canvas(int width, int height, Rgb background)
    : width_(width),
      height_(height),
      surface_(cairo_image_surface_create(CAIRO_FORMAT_RGB24, width * picture_scale,
                                          height * picture_scale)),
      context_(cairo_create(surface_.get())) {
  if (cairo_status(context_.get()) != CAIRO_STATUS_SUCCESS) throw std::bad_alloc();
  colour(background);
  cairo_paint(context_.get());
  cairo_scale(context_.get(), picture_scale, picture_scale);
}

void Canvas::colour(Rgb rgb) const {
  cairo_set_source_rgb(context_.get(), rgb.red, rgb.green, rgb.blue);
}

void Canvas::rectangle(double x, double y, double width, double height) const {
  cairo_rectangle(context_.get(), x, y, width, height);
  cairo_fill(context_.get());
}

void Canvas::line(double x1, double y1, double x2, double y2, double thickness) const {
  cairo_set_line_width(context_.get(), thickness);
  cairo_move_to(context_.get(), x1, y1);
  cairo_line_to(context_.get(), x2, y2);
  cairo_stroke(context_.get());
}

void Canvas::text(double x, double y, std::string_view text, const TextStyle& style) const {
  const Q_object<PangoLayout> layout(pango_cairo_create_layout(context_.get()));
  set_plain_text_rendering(layout.get());
  const std::unique_ptr<PangoFontDescription, Q_call<pango_font_description_free>> font(
      pango_font_description_from_string(font_name));
  pango_font_description_set_absolute_size(font.get(), style.size * PANGO_SCALE);
  if (style.bold) pango_font_description_set_weight(font.get(), PANGO_WEIGHT_BOLD);
  pango_layout_set_font_description(layout.get(), font.get());
  pango_layout_set_single_paragraph_mode(layout.get(), TRUE);
  const std::string shown = printable_text(text);
  pango_layout_set_text(layout.get(), shown.c_str(), -1);
  PangoRectangle box;
  pango_layout_get_extents(layout.get(), nullptr, &box);
  if (style.width > 0 && box.width > style.width * PANGO_SCALE) {
    pango_layout_set_width(layout.get(), int(style.width * PANGO_SCALE));
    pango_layout_set_ellipsize(layout.get(), PANGO_ELLIPSIZE_END);
    pango_layout_get_extents(layout.get(), nullptr, &box);
  }
  const double width = double(box.width) / PANGO_SCALE;
  const double shift = style.align == Align::left     ? 0
                       : style.align == Align::centre ? width / 2
                                                      : width;
  const double left = x - shift - double(box.x) / PANGO_SCALE;
  const double top = y - double(box.height) / 2 / PANGO_SCALE;
  if (style.rim > 0) {
    colour({0, 0, 0});
    cairo_move_to(context_.get(), left, top);
    pango_cairo_layout_path(context_.get(), layout.get());
    cairo_set_line_width(context_.get(), 2 * style.rim);
    cairo_set_line_join(context_.get(), CAIRO_LINE_JOIN_ROUND);
    cairo_stroke(context_.get());
  }
  colour(style.colour);
  cairo_move_to(context_.get(), left, top);
  pango_cairo_show_layout(context_.get(), layout.get());
}

std::uint32_t* Canvas::pixels() const {
  cairo_surface_flush(surface_.get());
  cairo_surface_mark_dirty(surface_.get());
  return reinterpret_cast<std::uint32_t*>(cairo_image_surface_get_data(surface_.get()));
}

int Canvas::stride() const {
  return cairo_image_surface_get_stride(surface_.get()) / int(sizeof(std::uint32_t));
}

Picture Canvas::picture(std::string alt) const {
  return {.png = png_of(pixels(), width_ * picture_scale, height_ * picture_scale, stride(),
                        unsigned(std::lround(pixels_per_metre * picture_scale))),
          .width = width_,
          .height = height_,
          .alt = std::move(alt)};
}

}  // namespace kvo::report
