#pragma once

// The entry in which a cell of the grid is edited.

#include <gtk/gtk.h>

#include <optional>
#include <string>

#include "companions/kvo_edit/grid.h"

namespace kvo::edit {

struct Grid_edit {
  Cell_place place;
  std::optional<std::string> text;  ///< what to begin with instead of the cell's text
  std::string shown;                ///< what the entry held at first
  GtkWidget* entry = nullptr;
  bool in_menu = false;  ///< the entry's own menu has the focus
};

/// The maker of the entry (grid_cell.h); the data is the Grid, whose `edit` says what to
/// edit.
GtkWidget* grid_edit_new_entry(gpointer grid);
/// The valid UTF-8 that stands for the text in widgets.
std::string shown_text(const std::string& text);

}  // namespace kvo::edit
