#include "companions/kvo_edit/peaks_glass.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

#include "engine/images/voxel_grid.h"
#include "util/handles.h"

namespace kvo::edit {

namespace {

constexpr int GLASS_HEIGHT = 150;  // pixels
constexpr double SPACE = 6;        // pixels between views
constexpr double RADIUS = 3.5;     // pixels

struct View {
  const char *left, *right;
  std::size_t across, up, through;  ///< axes of the grid
};
constexpr std::array<View, 3> VIEWS = {
    {{"P", "A", 1, 2, 0}, {"L", "R", 0, 2, 1}, {"L", "R", 0, 1, 2}}};

using Surface = std::unique_ptr<cairo_surface_t, Q_call<cairo_surface_destroy>>;
using Cairo = std::unique_ptr<cairo_t, Q_call<cairo_destroy>>;

struct Glass {
  std::array<Surface, 3> views;
  std::function<Glass_peaks()> peaks;
};

/// The brain as glass, which is brighter where it is thin.
Surface view_of(const View& view, const std::vector<bool>& brain) {
  const auto& size = mni_grid().size;
  const int width = size[view.across], height = size[view.up];
  Surface surface(cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height));
  cairo_surface_flush(surface.get());
  unsigned char* pixels = cairo_image_surface_get_data(surface.get());
  const int stride = cairo_image_surface_get_stride(surface.get());
  for (int row = 0; row < height; ++row)
    for (int column = 0; column < width; ++column) {
      std::array<int, 3> at{};
      at[view.across] = column;
      at[view.up] = height - 1 - row;
      int thickness = 0;
      for (at[view.through] = 0; at[view.through] < size[view.through]; ++at[view.through])
        thickness += !brain.empty() && brain[mni_grid().index(at[0], at[1], at[2])] ? 1 : 0;
      const auto grey = std::uint32_t(thickness > 0 ? 50 + 90 * std::exp(-thickness / 20.0) : 0);
      *reinterpret_cast<std::uint32_t*>(pixels + std::ptrdiff_t(row) * stride + column * 4L) =
          grey << 16 | grey << 8 | grey;
    }
  cairo_surface_mark_dirty(surface.get());
  return surface;
}

/// Positive peaks are discs, negative ones squares of another colour.
void draw_peak(cairo_t* cairo, double x, double y, bool positive, bool stands_out) {
  cairo_new_path(cairo);
  if (positive)
    cairo_arc(cairo, x, y, RADIUS, 0, 2 * std::numbers::pi);
  else
    cairo_rectangle(cairo, x - RADIUS, y - RADIUS, 2 * RADIUS, 2 * RADIUS);
  if (positive)
    cairo_set_source_rgb(cairo, 1, 0.6, 0.1);
  else
    cairo_set_source_rgb(cairo, 0.35, 0.75, 1);
  cairo_fill_preserve(cairo);
  cairo_set_line_width(cairo, stands_out ? 2 : 0.8);
  const double rim = stands_out ? 1 : 0;
  cairo_set_source_rgb(cairo, rim, rim, rim);
  cairo_stroke(cairo);
}

void draw_letter(cairo_t* cairo, double x, double y, const char* letter) {
  cairo_set_source_rgb(cairo, 0.85, 0.85, 0.85);
  cairo_set_font_size(cairo, 10);
  cairo_move_to(cairo, x, y);
  cairo_show_text(cairo, letter);
}

void draw_view(cairo_t* cairo, const View& view, cairo_surface_t* brain, double x, double scale,
               int height, const Glass_peaks& shown) {
  const auto& size = mni_grid().size;
  const double width = size[view.across] * scale, tall = size[view.up] * scale;
  const double y = (height - tall) / 2;
  cairo_save(cairo);
  cairo_translate(cairo, x, y);
  cairo_scale(cairo, scale, scale);
  cairo_set_source_surface(cairo, brain, 0, 0);
  cairo_paint(cairo);
  cairo_restore(cairo);
  const auto low = mm_of({0, 0, 0});
  for (const bool stands_out : {false, true})
    for (const Drawn_peak& peak : shown.peaks) {
      const bool chosen = peak.row >= shown.first_row && peak.row <= shown.last_row;
      if (chosen != stands_out) continue;
      const auto along = [&](std::size_t axis) {
        return ((peak.mm[axis] - low[axis]) / voxel_mm + 0.5) * scale;
      };
      draw_peak(cairo, x + along(view.across), y + tall - along(view.up), peak.positive, chosen);
    }
  draw_letter(cairo, x, 11, view.left);
  draw_letter(cairo, x + width - 8, 11, view.right);
}

gboolean on_expose(GtkWidget* widget, GdkEventExpose* /*event*/, gpointer data) {
  const Glass& glass = *static_cast<Glass*>(data);
  const Cairo cairo(gdk_cairo_create(gtk_widget_get_window(widget)));
  GtkAllocation room;
  gtk_widget_get_allocation(widget, &room);
  cairo_set_source_rgb(cairo.get(), 0, 0, 0);
  cairo_paint(cairo.get());
  const auto& size = mni_grid().size;
  double across = 0;
  int up = 0;
  for (const View& view : VIEWS) {
    across += size[view.across];
    up = std::max(up, size[view.up]);
  }
  const double spaces = SPACE * (VIEWS.size() - 1);
  const double scale = std::min((room.width - spaces) / across, double(room.height) / up);
  const Glass_peaks shown = glass.peaks();
  double x = (room.width - spaces - across * scale) / 2;
  for (std::size_t n = 0; n < VIEWS.size(); ++n) {
    draw_view(cairo.get(), VIEWS[n], glass.views[n].get(), x, scale, room.height, shown);
    x += size[VIEWS[n].across] * scale + SPACE;
  }
  return TRUE;
}

void forget(gpointer data, GClosure* /*closure*/) {
  delete static_cast<Glass*>(data);
}

}  // namespace

GtkWidget* peaks_glass_new(const std::vector<bool>& brain, std::function<Glass_peaks()> peaks) {
  auto glass = std::make_unique<Glass>();
  for (std::size_t n = 0; n < VIEWS.size(); ++n) glass->views[n] = view_of(VIEWS[n], brain);
  glass->peaks = std::move(peaks);
  GtkWidget* area = gtk_drawing_area_new();
  gtk_widget_set_size_request(area, -1, GLASS_HEIGHT);
  g_signal_connect_data(area, "expose-event", G_CALLBACK(on_expose), glass.release(), forget,
                        GConnectFlags(0));
  return area;
}

}  // namespace kvo::edit
