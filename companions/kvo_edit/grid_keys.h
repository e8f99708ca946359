#pragma once

// What the keys do in the grid and in the entry of an edited cell.

#include <gtk/gtk.h>

#include "companions/kvo_edit/grid.h"

namespace kvo::edit {

/// A key in the grid; TRUE when it has been used.
gboolean grid_key(Grid& grid, GdkEventKey& event);
/// A key in the entry; TRUE when it has ended editing.
gboolean grid_edit_key(Grid& grid, const GdkEventKey& event);

}  // namespace kvo::edit
