#pragma once

// The renderer of the grid's cells: a text renderer that draws the lines between cells, the
// cursor's frame and the corner that marks a fault, and that is edited in an entry of the grid's
// own.

#include <gtk/gtk.h>

namespace kvo::edit {

/// Makes the entry, shown but nowhere put yet, in which the cell that the view asks for is edited;
/// null when it is not to be edited.
using Grid_entry_maker = GtkWidget* (*)(gpointer data);

/// A renderer that calls the maker with the data when its cell is to be edited; without a maker its
/// cells cannot be.
GtkCellRenderer* grid_cell_new(Grid_entry_maker maker, gpointer data);

/// What the next cell to be drawn has beside its text; null for no frame, for no corner.
void grid_cell_set_marks(GtkCellRenderer* renderer, const GdkColor* frame, const GdkColor* corner);

}  // namespace kvo::edit
