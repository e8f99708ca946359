#pragma once

// What the pointer does in the grid: it selects, stretches the selection, opens a cell, and moves
// columns by their heads.

#include <gtk/gtk.h>

#include <optional>

#include "companions/kvo_edit/grid.h"

namespace kvo::edit {

/// The name under which each column of the view holds the position of its variable as data, or
/// one of the others.
inline constexpr const char* GRID_POSITION = "kvo-edit-position";
inline constexpr long GRID_NUMBERS = -1;  ///< the first column, with the numbers of the rows
inline constexpr long GRID_FILLER = -2;   ///< the last column, which takes the room that is left

void grid_connect_pointer(Grid& grid);
/// To be called for each column when it has been put into the view.
void grid_connect_header(Grid& grid, GtkTreeViewColumn* column);

/// The cell, possibly of the column GRID_NUMBERS, at a place of the view's inner window.
std::optional<Cell_place> grid_place_at(const Grid& grid, int x, int y);

}  // namespace kvo::edit
