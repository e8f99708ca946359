#include "companions/kvo_edit/grid_edit.h"

#include <gdk/gdkkeysyms.h>

#include <utility>

#include "companions/kvo_edit/grid_keys.h"
#include "companions/kvo_edit/operations.h"
#include "engine/studies/study_rules.h"
#include "util/handles.h"

namespace kvo::edit {

namespace {

gboolean on_focus_out(GtkWidget* /*entry*/, GdkEvent* /*event*/, gpointer data) {
  Grid& grid = *static_cast<Grid*>(data);
  if (grid.edit != nullptr && !grid.edit->in_menu) grid_finish_edit(grid, true);
  return FALSE;
}

void on_menu_gone(GtkWidget* /*menu*/, gpointer data) {
  Grid& grid = *static_cast<Grid*>(data);
  if (grid.edit != nullptr) grid.edit->in_menu = false;
}

void on_entry_menu(GtkEntry* /*entry*/, GtkMenu* menu, gpointer data) {
  Grid& grid = *static_cast<Grid*>(data);
  if (grid.edit == nullptr) return;
  grid.edit->in_menu = true;
  g_signal_connect(menu, "unmap", G_CALLBACK(on_menu_gone), data);
}

/// The view takes the entry away when it is scrolled out of existence, say.
void on_removed(GtkCellEditable* /*entry*/, gpointer data) {
  grid_finish_edit(*static_cast<Grid*>(data), true);
}

gboolean on_entry_key(GtkWidget* /*entry*/, GdkEventKey* event, gpointer data) {
  return grid_edit_key(*static_cast<Grid*>(data), *event);
}

}  // namespace

std::string shown_text(const std::string& text) {
  const Q_g_memory<char> valid(g_utf8_make_valid(text.data(), static_cast<gssize>(text.size())));
  return valid.get();
}

GtkWidget* grid_edit_new_entry(gpointer data) {
  Grid& grid = *static_cast<Grid*>(data);
  if (grid.edit == nullptr || grid.edit->entry != nullptr) return nullptr;
  Grid_edit& edit = *grid.edit;
  const std::string& text = cell(grid.document->table, edit.place.row, edit.place.column);
  edit.shown = is_missing(text) ? "" : shown_text(text);
  GtkWidget* entry = gtk_entry_new();
  gtk_entry_set_has_frame(GTK_ENTRY(entry), FALSE);
  gtk_entry_set_text(GTK_ENTRY(entry), edit.text.value_or(edit.shown).c_str());
  g_object_set(entry, "xalign", 0.0, nullptr);
  g_signal_connect(entry, "key-press-event", G_CALLBACK(on_entry_key), data);
  g_signal_connect(entry, "focus-out-event", G_CALLBACK(on_focus_out), data);
  g_signal_connect(entry, "populate-popup", G_CALLBACK(on_entry_menu), data);
  g_signal_connect(entry, "remove-widget", G_CALLBACK(on_removed), data);
  gtk_widget_show(entry);
  edit.entry = entry;
  return entry;
}

void grid_start_edit(Grid& grid, const std::optional<std::string>& text) {
  grid_finish_edit(grid, true);
  if (grid.cursor.row >= row_count(grid.document->table)) return;
  grid.anchor = grid.cursor;
  grid_redraw(grid);
  grid.edit = std::make_unique<Grid_edit>(Grid_edit{grid.cursor, text, {}, nullptr, false});
  const std::unique_ptr<GtkTreePath, Q_call<gtk_tree_path_free>> path(
      gtk_tree_path_new_from_indices(static_cast<int>(grid.cursor.row), -1));
  GtkTreeViewColumn* column =
      gtk_tree_view_get_column(grid.view, static_cast<int>(grid.cursor.column) + 1);
  gtk_tree_view_set_cursor(grid.view, path.get(), column, TRUE);
  if (grid.edit == nullptr) return;
  if (grid.edit->entry == nullptr) {
    grid.edit.reset();
    return;
  }
  GtkEditable* editable = GTK_EDITABLE(grid.edit->entry);
  if (text)
    gtk_editable_set_position(editable, -1);
  else
    gtk_editable_select_region(editable, 0, -1);
}

void grid_finish_edit(Grid& grid, bool stores) {
  if (grid.edit == nullptr) return;
  // Taken out first, as removing the entry makes it lose the focus.
  const std::unique_ptr<Grid_edit> edit = std::move(grid.edit);
  if (edit->entry == nullptr) return;
  const std::string text = gtk_entry_get_text(GTK_ENTRY(edit->entry));
  gtk_cell_editable_editing_done(GTK_CELL_EDITABLE(edit->entry));
  gtk_cell_editable_remove_widget(GTK_CELL_EDITABLE(edit->entry));
  if (!stores || text == edit->shown) return;
  const std::size_t steps = grid.document->undo_steps.size();
  set_text(*grid.document, edit->place.row, edit->place.column, text);
  if (grid.document->undo_steps.size() != steps) grid.events.changed();
}

}  // namespace kvo::edit
