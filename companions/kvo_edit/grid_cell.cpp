#include "companions/kvo_edit/grid_cell.h"

#include <memory>

#include "util/handles.h"

namespace kvo::edit {

namespace {

constexpr double CORNER = 6;  // pixels
constexpr double FRAME = 2;   // pixels

struct Grid_cell {
  GtkCellRendererText parent;
  Grid_entry_maker maker;
  gpointer data;
  gboolean has_frame;
  gboolean has_corner;
  GdkColor frame;
  GdkColor corner;
};
struct Grid_cell_class {
  GtkCellRendererTextClass parent;
};

gpointer parent_class = nullptr;

void render(GtkCellRenderer* renderer, GdkDrawable* window, GtkWidget* widget,
            GdkRectangle* background, GdkRectangle* area, GdkRectangle* exposed,
            GtkCellRendererState flags) {
  GTK_CELL_RENDERER_CLASS(parent_class)
      ->render(renderer, window, widget, background, area, exposed, flags);
  const auto* grid_cell = reinterpret_cast<Grid_cell*>(renderer);
  const std::unique_ptr<cairo_t, Q_call<cairo_destroy>> cairo(gdk_cairo_create(window));
  const double right = background->x + background->width;
  const double bottom = background->y + background->height;
  gdk_cairo_set_source_color(cairo.get(), &gtk_widget_get_style(widget)->bg[GTK_STATE_ACTIVE]);
  cairo_rectangle(cairo.get(), background->x, bottom - 1, background->width, 1);
  cairo_rectangle(cairo.get(), right - 1, background->y, 1, background->height);
  cairo_fill(cairo.get());
  if (grid_cell->has_corner != FALSE) {
    gdk_cairo_set_source_color(cairo.get(), &grid_cell->corner);
    cairo_move_to(cairo.get(), right - CORNER, background->y);
    cairo_line_to(cairo.get(), right, background->y);
    cairo_line_to(cairo.get(), right, background->y + CORNER);
    cairo_fill(cairo.get());
  }
  if (grid_cell->has_frame != FALSE) {
    gdk_cairo_set_source_color(cairo.get(), &grid_cell->frame);
    cairo_set_line_width(cairo.get(), FRAME);
    cairo_rectangle(cairo.get(), background->x + FRAME / 2, background->y + FRAME / 2,
                    background->width - FRAME - 1, background->height - FRAME - 1);
    cairo_stroke(cairo.get());
  }
}

GtkCellEditable* start_editing(GtkCellRenderer* renderer, GdkEvent* /*event*/,
                               GtkWidget* /*widget*/, const gchar* /*path*/,
                               GdkRectangle* /*background*/, GdkRectangle* /*area*/,
                               GtkCellRendererState /*flags*/) {
  const auto* grid_cell = reinterpret_cast<Grid_cell*>(renderer);
  GtkWidget* entry = grid_cell->maker(grid_cell->data);
  return entry == nullptr ? nullptr : GTK_CELL_EDITABLE(entry);
}

void initialise_class(gpointer klass, gpointer /*data*/) {
  parent_class = g_type_class_peek_parent(klass);
  GTK_CELL_RENDERER_CLASS(klass)->render = render;
  GTK_CELL_RENDERER_CLASS(klass)->start_editing = start_editing;
}

GType grid_cell_type() {
  static const GType type = g_type_register_static_simple(
      GTK_TYPE_CELL_RENDERER_TEXT, "KvoGridCell", sizeof(Grid_cell_class), initialise_class,
      sizeof(Grid_cell), nullptr, GTypeFlags(0));
  return type;
}

void store_color(gboolean& present, GdkColor& stored, const GdkColor* color) {
  present = color != nullptr;
  if (color != nullptr) stored = *color;
}

}  // namespace

GtkCellRenderer* grid_cell_new(Grid_entry_maker maker, gpointer data) {
  auto* grid_cell = static_cast<Grid_cell*>(g_object_new(
      grid_cell_type(), "mode",
      maker == nullptr ? GTK_CELL_RENDERER_MODE_INERT : GTK_CELL_RENDERER_MODE_EDITABLE, "editable",
      maker != nullptr, "ellipsize", PANGO_ELLIPSIZE_END, "single-paragraph-mode", TRUE, "ypad", 3,
      "xpad", 5, nullptr));
  grid_cell->maker = maker;
  grid_cell->data = data;
  return GTK_CELL_RENDERER(grid_cell);
}

void grid_cell_set_marks(GtkCellRenderer* renderer, const GdkColor* frame, const GdkColor* corner) {
  auto* grid_cell = reinterpret_cast<Grid_cell*>(renderer);
  store_color(grid_cell->has_frame, grid_cell->frame, frame);
  store_color(grid_cell->has_corner, grid_cell->corner, corner);
}

}  // namespace kvo::edit
