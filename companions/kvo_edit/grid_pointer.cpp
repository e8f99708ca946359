#include "companions/kvo_edit/grid_pointer.h"

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <vector>

#include "companions/kvo_edit/grid_edit.h"
#include "companions/kvo_edit/operations.h"
#include "util/handles.h"

namespace kvo::edit {

namespace {

constexpr guint LEFT = 1;
constexpr guint RIGHT = 3;

using Columns = std::unique_ptr<GList, Q_call<g_list_free>>;

long position_of(GtkTreeViewColumn* column) {
  return GPOINTER_TO_INT(g_object_get_data(G_OBJECT(column), GRID_POSITION));
}

void select_row(Grid& grid, long row, bool extends) {
  const long first_row = extends ? grid.anchor.row : row;
  grid_move_to(grid, row, 0);
  grid.anchor = {first_row, column_count(grid.document->table) - 1};
  grid_redraw(grid);
  grid.events.moved();
}

void select_column(Grid& grid, long column, bool extends) {
  const long first_column = extends ? grid.anchor.column : column;
  grid_select(grid, {0, column, row_count(grid.document->table) - 1, first_column});
}

void select_all(Grid& grid) {
  grid_select(grid,
              {0, 0, row_count(grid.document->table) - 1, column_count(grid.document->table) - 1});
}

void press_at(Grid& grid, const Cell_place& place, const GdkEventButton& event) {
  const bool extends = (event.state & GDK_SHIFT_MASK) != 0;
  if (event.button == RIGHT) {
    const auto selection = grid_selection(grid);
    const bool inside = selection && selection->contains(place.row, std::max(place.column, 0L));
    if (!inside && place.column < 0) select_row(grid, place.row, false);
    if (!inside && place.column >= 0) grid_move_to(grid, place.row, place.column);
    grid.events.menu(event.button, event.time);
  } else if (event.button == LEFT && place.column < 0) {
    select_row(grid, place.row, extends);
  } else if (event.button == LEFT && event.type == GDK_2BUTTON_PRESS) {
    grid_start_edit(grid);
  } else if (event.button == LEFT && event.type == GDK_BUTTON_PRESS) {
    grid_move_to(grid, place.row, place.column, extends);
    grid.dragging = true;
  }
}

gboolean on_press(GtkWidget* widget, GdkEventButton* event, gpointer data) {
  Grid& grid = *static_cast<Grid*>(data);
  if (event->window != gtk_tree_view_get_bin_window(grid.view)) return FALSE;
  grid_finish_edit(grid, true);
  gtk_widget_grab_focus(widget);
  const auto place = grid_place_at(grid, static_cast<int>(event->x), static_cast<int>(event->y));
  if (place) press_at(grid, *place, *event);
  if (!place && event->button == RIGHT) grid.events.menu(event->button, event->time);
  // The view's own handler would select rows and move a cursor of its own.
  return TRUE;
}

gboolean on_motion(GtkWidget* /*view*/, GdkEventMotion* event, gpointer data) {
  Grid& grid = *static_cast<Grid*>(data);
  if (!grid.dragging || event->window != gtk_tree_view_get_bin_window(grid.view)) return FALSE;
  const auto place = grid_place_at(grid, static_cast<int>(event->x), static_cast<int>(event->y));
  if (!place) return TRUE;
  const Cell_place target = {place->row, std::max(place->column, 0L)};
  if (!(target == grid.cursor)) grid_move_to(grid, target.row, target.column, true);
  return TRUE;
}

gboolean on_release(GtkWidget* /*view*/, GdkEventButton* /*event*/, gpointer data) {
  static_cast<Grid*>(data)->dragging = false;
  return FALSE;
}

gboolean on_popup_menu(GtkWidget* /*view*/, gpointer data) {
  static_cast<Grid*>(data)->events.menu(0, gtk_get_current_event_time());
  return TRUE;
}

gboolean on_header_press(GtkWidget* button, GdkEventButton* event, gpointer data) {
  Grid& grid = *static_cast<Grid*>(data);
  auto* column = static_cast<GtkTreeViewColumn*>(g_object_get_data(G_OBJECT(button), "column"));
  const long position = position_of(column);
  if (position == GRID_FILLER) return TRUE;
  grid_finish_edit(grid, true);
  gtk_widget_grab_focus(GTK_WIDGET(grid.view));
  if (position == GRID_NUMBERS) {
    select_all(grid);
    return TRUE;
  }
  if (event->button == LEFT && event->type == GDK_2BUTTON_PRESS) {
    grid.events.rename(position);
    return TRUE;
  }
  const auto selection = grid_selection(grid);
  const bool inside = selection && selection->contains(0, position) &&
                      selection->contains(row_count(grid.document->table) - 1, position);
  if (event->button == LEFT || !inside)
    select_column(grid, position, (event->state & GDK_SHIFT_MASK) != 0);
  if (event->button == RIGHT) grid.events.menu(event->button, event->time);
  // The view goes on with the left button: it may be the beginning of a drag.
  return event->button != LEFT;
}

/// The head of a column has been dropped elsewhere: the table follows, and the columns of the view,
/// which always show the table's columns in order, go back.
gboolean take_over_order(gpointer data) {
  Grid& grid = *static_cast<Grid*>(data);
  grid.rearrange.forget();
  const Columns columns(gtk_tree_view_get_columns(grid.view));
  // Columns also change when the view goes.
  if (g_list_length(columns.get()) == 0) return G_SOURCE_REMOVE;
  std::vector<GtkTreeViewColumn*> ordered(g_list_length(columns.get()) - 1);
  long from = 0;
  long to = 0;
  long farthest = 0;
  long place = -1;
  for (const GList* entry = columns.get(); entry != nullptr; entry = entry->next, ++place) {
    auto* column = static_cast<GtkTreeViewColumn*>(entry->data);
    const long position = position_of(column);
    if (position == GRID_FILLER) continue;
    ordered[static_cast<std::size_t>(position + 1)] = column;
    if (std::labs(position - place) <= farthest) continue;
    farthest = std::labs(position - place);
    from = position;
    to = place;
  }
  if (farthest == 0) return G_SOURCE_REMOVE;
  grid.arranging = true;
  for (std::size_t i = 0; i < ordered.size(); ++i)
    gtk_tree_view_move_column_after(grid.view, ordered[i], i == 0 ? nullptr : ordered[i - 1]);
  grid.arranging = false;
  place_variable(*grid.document, from, to);
  grid.events.changed();
  select_column(grid, to, false);
  return G_SOURCE_REMOVE;
}

void on_columns_changed(GtkTreeView* /*view*/, gpointer data) {
  Grid& grid = *static_cast<Grid*>(data);
  // Later, as the view is still busy with the drag.
  if (!grid.arranging) grid.rearrange = Q_source(g_idle_add(take_over_order, data));
}

/// No column can be dropped at either end, where there are other columns than those of variables.
gboolean may_drop(GtkTreeView* /*view*/, GtkTreeViewColumn* /*column*/, GtkTreeViewColumn* previous,
                  GtkTreeViewColumn* next, gpointer /*data*/) {
  return previous != nullptr && next != nullptr;
}

}  // namespace

std::optional<Cell_place> grid_place_at(const Grid& grid, int x, int y) {
  GtkTreePath* found = nullptr;
  GtkTreeViewColumn* column = nullptr;
  if (gtk_tree_view_get_path_at_pos(grid.view, x, y, &found, &column, nullptr, nullptr) == FALSE)
    return std::nullopt;
  const std::unique_ptr<GtkTreePath, Q_call<gtk_tree_path_free>> path(found);
  if (position_of(column) == GRID_FILLER) return std::nullopt;
  return Cell_place{gtk_tree_path_get_indices(path.get())[0], position_of(column)};
}

void grid_connect_pointer(Grid& grid) {
  GtkTreeView* view = grid.view;
  gtk_tree_view_set_column_drag_function(view, may_drop, nullptr, nullptr);
  g_signal_connect(view, "button-press-event", G_CALLBACK(on_press), &grid);
  g_signal_connect(view, "motion-notify-event", G_CALLBACK(on_motion), &grid);
  g_signal_connect(view, "button-release-event", G_CALLBACK(on_release), &grid);
  g_signal_connect(view, "popup-menu", G_CALLBACK(on_popup_menu), &grid);
  g_signal_connect(view, "columns-changed", G_CALLBACK(on_columns_changed), &grid);
}

void grid_connect_header(Grid& grid, GtkTreeViewColumn* column) {
  g_object_set_data(G_OBJECT(column->button), "column", column);
  g_signal_connect(column->button, "button-press-event", G_CALLBACK(on_header_press), &grid);
}

}  // namespace kvo::edit
