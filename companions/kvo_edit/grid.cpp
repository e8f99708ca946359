#include "companions/kvo_edit/grid.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "companions/kvo_edit/column_help.h"
#include "companions/kvo_edit/grid_cell.h"
#include "companions/kvo_edit/grid_edit.h"
#include "companions/kvo_edit/grid_keys.h"
#include "companions/kvo_edit/grid_pointer.h"
#include "engine/base/text_file.h"
#include "engine/studies/study_rules.h"
#include "util/handles.h"

namespace kvo::edit {

namespace {

constexpr const char* NAME = "kvo-edit-grid";
constexpr int NUMBERS_WIDTH = 52;    // pixels
constexpr int LEAST_WIDTH = 56;      // pixels
constexpr int MOST_WIDTH = 320;      // pixels
constexpr int AROUND_TEXT = 24;      // pixels
constexpr long ROWS_MEASURED = 500;  // for the width of a column

constexpr GdkColor PROBLEM = {0, 0xcccc, 0x0000, 0x0000};
constexpr GdkColor NOTE = {0, 0xdddd, 0x8888, 0x0000};

using Path = std::unique_ptr<GtkTreePath, Q_call<gtk_tree_path_free>>;

Path path_of(long row) {
  return Path(gtk_tree_path_new_from_indices(static_cast<int>(row), -1));
}

GdkColor mixed(const GdkColor& a, const GdkColor& b, double share_of_b) {
  const auto mix = [share_of_b](guint16 x, guint16 y) {
    return static_cast<guint16>(x + (y - x) * share_of_b);
  };
  return {0, mix(a.red, b.red), mix(a.green, b.green), mix(a.blue, b.blue)};
}

const GdkColor& color_of(Severity severity) {
  return severity == Severity::problem ? PROBLEM : NOTE;
}

long row_of(GtkTreeModel* model, GtkTreeIter* iter) {
  int row = 0;
  gtk_tree_model_get(model, iter, 0, &row, -1);
  return row;
}

void show_number(GtkTreeViewColumn* /*column*/, GtkCellRenderer* renderer, GtkTreeModel* model,
                 GtkTreeIter* iter, gpointer data) {
  const Grid& grid = *static_cast<Grid*>(data);
  const long row = row_of(model, iter);
  const GtkStyle* style = gtk_widget_get_style(GTK_WIDGET(grid.view));
  const auto selection = grid_selection(grid);
  const bool selected = selection && row >= selection->first_row && row <= selection->last_row;
  const GdkColor& plain = style->bg[GTK_STATE_NORMAL];
  const GdkColor background = selected ? mixed(plain, style->bg[GTK_STATE_SELECTED], 0.35) : plain;
  const std::string text = std::to_string(row + 1);
  g_object_set(renderer, "text", text.c_str(), "cell-background-gdk", &background, nullptr);
}

void show_cell(GtkTreeViewColumn* column, GtkCellRenderer* renderer, GtkTreeModel* model,
               GtkTreeIter* iter, gpointer data) {
  const Grid& grid = *static_cast<Grid*>(data);
  const long row = row_of(model, iter);
  const long position = GPOINTER_TO_INT(g_object_get_data(G_OBJECT(column), GRID_POSITION));
  const Table& table = grid.document->table;
  if (row >= row_count(table) || position >= column_count(table)) return;
  const std::string& text = cell(table, row, position);
  const bool missing = is_missing(text);

  const GtkStyle* style = gtk_widget_get_style(GTK_WIDGET(grid.view));
  const GdkColor& base = style->base[GTK_STATE_NORMAL];
  const std::optional<Fault> fault = grid.fault(row, position);
  GdkColor background = fault ? mixed(base, color_of(fault->severity), 0.22) : base;
  const bool is_cursor = grid.cursor == Cell_place{row, position};
  const auto selection = grid_selection(grid);
  const bool selected = selection && selection->contains(row, position) && !is_cursor;
  if (selected) background = mixed(background, style->bg[GTK_STATE_SELECTED], 0.35);
  const GdkColor foreground = mixed(style->text[GTK_STATE_NORMAL], background, missing ? 0.6 : 0.0);
  const std::string shown = missing ? "NA" : shown_text(text);
  g_object_set(renderer, "text", shown.c_str(), "cell-background-gdk", &background,
               "foreground-gdk", &foreground, "xalign", number_of(text) ? 1.0 : 0.0, nullptr);
  grid_cell_set_marks(renderer, is_cursor ? &style->bg[GTK_STATE_SELECTED] : nullptr,
                      fault ? &color_of(fault->severity) : nullptr);
}

void show_nothing(GtkTreeViewColumn* /*column*/, GtkCellRenderer* /*renderer*/,
                  GtkTreeModel* /*model*/, GtkTreeIter* /*iter*/, gpointer /*data*/) {}

GtkTreeViewColumn* column_at(const Grid& grid, long position) {
  return gtk_tree_view_get_column(grid.view, static_cast<int>(position) + 1);
}

int width_of(const Grid& grid, const std::string& text) {
  const Q_object<PangoLayout> layout(
      gtk_widget_create_pango_layout(GTK_WIDGET(grid.view), shown_text(text).c_str()));
  int width = 0;
  pango_layout_get_pixel_size(layout.get(), &width, nullptr);
  return width;
}

/// A width for the name and for the longest of the first values.
int fitting_width(const Grid& grid, long position) {
  const Table& table = grid.document->table;
  const std::string* longest = nullptr;
  for (long row = 0; row < std::min(row_count(table), ROWS_MEASURED); ++row) {
    const std::string& text = cell(table, row, position);
    if (longest == nullptr || text.size() > longest->size()) longest = &text;
  }
  const int width = std::max(longest == nullptr ? 0 : width_of(grid, *longest),
                             width_of(grid, cell(table, HEADER, position)));
  return std::clamp(width + AROUND_TEXT, LEAST_WIDTH, MOST_WIDTH);
}

/// Puts a column of fixed width into the view, at the place that it has there.
GtkTreeViewColumn* insert_column(Grid& grid, long position, int place, GtkCellRenderer* renderer,
                                 GtkTreeCellDataFunc show) {
  GtkTreeViewColumn* column = gtk_tree_view_column_new();
  g_object_set_data(G_OBJECT(column), GRID_POSITION, GINT_TO_POINTER(static_cast<int>(position)));
  gtk_tree_view_column_pack_start(column, renderer, TRUE);
  gtk_tree_view_column_set_cell_data_func(column, renderer, show, &grid, nullptr);
  gtk_tree_view_column_set_sizing(column, GTK_TREE_VIEW_COLUMN_FIXED);
  gtk_tree_view_column_set_clickable(column, TRUE);
  gtk_tree_view_insert_column(grid.view, column, place);
  grid_connect_header(grid, column);
  return column;
}

void add_column(Grid& grid, long position) {
  GtkTreeViewColumn* column = insert_column(grid, position, static_cast<int>(position) + 1,
                                            grid_cell_new(grid_edit_new_entry, &grid), show_cell);
  gtk_tree_view_column_set_resizable(column, TRUE);
  gtk_tree_view_column_set_reorderable(column, grid.has_fixed_columns ? FALSE : TRUE);
  GtkWidget* label = gtk_label_new("");
  gtk_widget_show(label);
  gtk_tree_view_column_set_widget(column, label);
}

/// The columns at both ends of the view that are not the table's.
void add_end_columns(Grid& grid) {
  GtkCellRenderer* renderer = grid_cell_new(nullptr, nullptr);
  g_object_set(renderer, "xalign", 1.0, nullptr);
  GtkTreeViewColumn* numbers = insert_column(grid, GRID_NUMBERS, 0, renderer, show_number);
  gtk_tree_view_column_set_fixed_width(numbers, NUMBERS_WIDTH);
  GtkTreeViewColumn* filler =
      insert_column(grid, GRID_FILLER, 1, gtk_cell_renderer_text_new(), show_nothing);
  gtk_tree_view_column_set_fixed_width(filler, 1);
}

void show_name(Grid& grid, long position) {
  const std::string& name = cell(grid.document->table, HEADER, position);
  GtkTreeViewColumn* column = column_at(grid, position);
  GtkWidget* label = gtk_tree_view_column_get_widget(column);
  const std::optional<Fault> fault = grid.fault(HEADER, position);
  gtk_label_set_text(GTK_LABEL(label), is_missing(name) ? "NA" : shown_text(name).c_str());
  const GdkColor* color = fault ? &color_of(fault->severity) : nullptr;
  for (const GtkStateType state : {GTK_STATE_NORMAL, GTK_STATE_PRELIGHT, GTK_STATE_ACTIVE})
    gtk_widget_modify_fg(label, state, color);
  gtk_widget_set_tooltip_text(column->button, fault ? fault->text.c_str() : column_help(name));
}

/// The rows of the view carry nothing but their numbers, so only their count has to follow the
/// table: rows come and go at the end, whatever has happened in the table.
void adjust_rows(Grid& grid) {
  const long wanted = row_count(grid.document->table);
  long rows = gtk_tree_model_iter_n_children(GTK_TREE_MODEL(grid.store), nullptr);
  for (; rows < wanted; ++rows)
    gtk_list_store_insert_with_values(grid.store, nullptr, static_cast<int>(rows), 0,
                                      static_cast<int>(rows), -1);
  for (GtkTreeIter last; rows > wanted; --rows) {
    gtk_tree_model_iter_nth_child(GTK_TREE_MODEL(grid.store), &last, nullptr,
                                  static_cast<int>(rows) - 1);
    gtk_list_store_remove(grid.store, &last);
  }
}

std::vector<std::string> names_shown(const Grid& grid) {
  std::vector<std::string> names;
  for (long position = 0;; ++position) {
    GtkWidget* label = gtk_tree_view_column_get_widget(column_at(grid, position));
    if (label == nullptr) return names;  // the filler
    names.emplace_back(gtk_label_get_text(GTK_LABEL(label)));
  }
}

/// Columns come and go at the end, too. The widths that the user has given stay with the names,
/// unless the table was `empty`.
void adjust_columns(Grid& grid, bool empty) {
  const std::vector<std::string> before = names_shown(grid);
  std::vector<int> widths;
  for (std::size_t i = 0; i < before.size(); ++i) {
    GtkTreeViewColumn* column = column_at(grid, static_cast<long>(i));
    const int width = gtk_tree_view_column_get_width(column);
    widths.push_back(width > 0 ? width : gtk_tree_view_column_get_fixed_width(column));
  }
  const long wanted = column_count(grid.document->table);
  grid.arranging = true;
  for (auto count = static_cast<long>(before.size()); count < wanted; ++count)
    add_column(grid, count);
  for (auto count = static_cast<long>(before.size()); count > wanted; --count)
    gtk_tree_view_remove_column(grid.view, column_at(grid, count - 1));
  grid.arranging = false;
  for (long position = 0; position < wanted; ++position) show_name(grid, position);
  const std::vector<std::string> names = names_shown(grid);
  if (names == before && !empty) return;
  for (std::size_t i = 0; i < names.size(); ++i) {
    const auto old = std::ranges::find(before, names[i]);
    const auto position = static_cast<long>(i);
    gtk_tree_view_column_set_fixed_width(column_at(grid, position),
                                         old == before.end() || empty
                                             ? fitting_width(grid, position)
                                             : widths[std::size_t(old - before.begin())]);
  }
}

gboolean on_grid_key(GtkWidget* /*view*/, GdkEventKey* event, gpointer data) {
  return grid_key(*static_cast<Grid*>(data), *event);
}

gboolean on_tooltip(GtkWidget* widget, gint x, gint y, gboolean keyboard, GtkTooltip* tooltip,
                    gpointer data) {
  const Grid& grid = *static_cast<Grid*>(data);
  if (keyboard != FALSE) return FALSE;
  GtkTreeView* view = GTK_TREE_VIEW(widget);
  int bin_x = 0;
  int bin_y = 0;
  gtk_tree_view_convert_widget_to_bin_window_coords(view, x, y, &bin_x, &bin_y);
  const std::optional<Cell_place> place = grid_place_at(grid, bin_x, bin_y);
  if (!place || place->column < 0) return FALSE;
  const std::optional<Fault> fault = grid.fault(place->row, place->column);
  if (!fault) return FALSE;
  const Path path = path_of(place->row);
  gtk_tree_view_set_tooltip_cell(view, tooltip, path.get(), column_at(grid, place->column),
                                 nullptr);
  gtk_tooltip_set_text(tooltip, fault->text.c_str());
  return TRUE;
}

/// The view's own cursor is that of the last edited cell, so it is not to be seen.
void hide_own_cursor() {
  gtk_rc_parse_string(
      "style \"kvo-edit-grid\" { GtkWidget::focus-line-width = 0 GtkTreeView::vertical-separator = "
      "0"
      " GtkTreeView::horizontal-separator = 0 }\n"
      "widget \"*.kvo-edit-grid\" style \"kvo-edit-grid\"");
}

void clamp_to_table(const Grid& grid, Cell_place& place) {
  const Table& table = grid.document->table;
  place.row = std::clamp(place.row, 0L, std::max(row_count(table) - 1, 0L));
  place.column = std::clamp(place.column, 0L, column_count(table) - 1);
}

void show_cursor(Grid& grid) {
  if (row_count(grid.document->table) == 0) return;
  const Path path = path_of(grid.cursor.row);
  gtk_tree_view_scroll_to_cell(grid.view, path.get(), column_at(grid, grid.cursor.column), FALSE, 0,
                               0);
}

}  // namespace

Grid::~Grid() {
  if (view == nullptr) return;
  g_signal_handlers_disconnect_matched(view, G_SIGNAL_MATCH_DATA, 0, 0, nullptr, nullptr, this);
  edit.reset();
  gtk_widget_destroy(GTK_WIDGET(view));
  g_object_unref(store);
  g_object_unref(view);
}

std::unique_ptr<Grid> grid_new(Document* document, Cell_check fault, Grid_events events,
                               bool has_fixed_columns) {
  hide_own_cursor();
  auto grid = std::make_unique<Grid>();
  grid->document = document;
  grid->fault = std::move(fault);
  grid->has_fixed_columns = has_fixed_columns;
  grid->events = std::move(events);
  grid->store = gtk_list_store_new(1, G_TYPE_INT);
  grid->view = GTK_TREE_VIEW(g_object_ref_sink(gtk_tree_view_new()));
  GtkTreeView* view = grid->view;
  gtk_widget_set_name(GTK_WIDGET(view), NAME);
  gtk_tree_view_set_enable_search(view, FALSE);
  gtk_tree_selection_set_mode(gtk_tree_view_get_selection(view), GTK_SELECTION_NONE);
  add_end_columns(*grid);
  adjust_columns(*grid, true);
  gtk_tree_view_set_fixed_height_mode(view, TRUE);
  adjust_rows(*grid);
  gtk_tree_view_set_model(view, GTK_TREE_MODEL(grid->store));
  gtk_widget_set_has_tooltip(GTK_WIDGET(view), TRUE);
  g_signal_connect(view, "key-press-event", G_CALLBACK(on_grid_key), grid.get());
  g_signal_connect(view, "query-tooltip", G_CALLBACK(on_tooltip), grid.get());
  grid_connect_pointer(*grid);
  return grid;
}

void grid_set_document(Grid& grid, Document* document) {
  grid_finish_edit(grid, true);
  grid.document = document;
  grid.cursor = grid.anchor = {0, 0};
  grid_refresh(grid);
}

void grid_refresh(Grid& grid) {
  grid_finish_edit(grid, true);
  const bool empty = gtk_tree_model_iter_n_children(GTK_TREE_MODEL(grid.store), nullptr) == 0;
  adjust_rows(grid);
  adjust_columns(grid, empty);
  clamp_to_table(grid, grid.cursor);
  clamp_to_table(grid, grid.anchor);
  grid_redraw(grid);
}

void grid_redraw(Grid& grid) {
  gtk_widget_queue_draw(GTK_WIDGET(grid.view));
}

std::optional<Cell_range> grid_selection(const Grid& grid) {
  if (row_count(grid.document->table) == 0) return std::nullopt;
  const auto [first_row, last_row] = std::minmax(grid.anchor.row, grid.cursor.row);
  const auto [first_column, last_column] = std::minmax(grid.anchor.column, grid.cursor.column);
  return Cell_range{first_row, first_column, last_row, last_column};
}

void grid_select(Grid& grid, const Cell_range& range) {
  grid_finish_edit(grid, true);
  grid.cursor = {range.first_row, range.first_column};
  grid.anchor = {range.last_row, range.last_column};
  clamp_to_table(grid, grid.cursor);
  clamp_to_table(grid, grid.anchor);
  grid.return_column = -1;
  show_cursor(grid);
  grid_redraw(grid);
  grid.events.moved();
}

void grid_move_to(Grid& grid, long row, long column, bool extends) {
  grid_finish_edit(grid, true);
  grid.cursor = {row, column};
  clamp_to_table(grid, grid.cursor);
  if (!extends) grid.anchor = grid.cursor;
  grid.return_column = -1;
  show_cursor(grid);
  grid_redraw(grid);
  grid.events.moved();
}

}  // namespace kvo::edit
