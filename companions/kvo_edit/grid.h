#pragma once

// The table on the screen: a cursor, a selected rectangle, cells edited in place. It reads the
// document and the checks, and changes the document only by what is typed into a cell.

#include <gtk/gtk.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "companions/kvo_edit/checks.h"
#include "companions/kvo_edit/document.h"
#include "util/handles.h"

namespace kvo::edit {

/// What is wrong with a cell, or with the name of a variable (row HEADER).
using Cell_check = std::function<std::optional<Fault>(long row, long column)>;

/// What the grid tells its window.
struct Grid_events {
  std::function<void()> changed;                         ///< the document has been changed
  std::function<void()> moved;                           ///< cursor or selection are elsewhere
  std::function<void(long column)> rename;               ///< a name has been double-clicked
  std::function<void(guint button, guint32 time)> menu;  ///< the context menu is wanted
};

struct Grid_edit;

struct Grid {
  Document* document = nullptr;
  Cell_check fault;  ///< what is wrong with a cell
  bool has_fixed_columns = false;
  Grid_events events;
  GtkTreeView* view = nullptr;
  GtkListStore* store = nullptr;  ///< holds the number of each row, as the rows are in order
  Cell_place cursor{0, 0};
  Cell_place anchor{0, 0};          ///< the corner of the selection that stays
  long return_column = -1;          ///< where Enter goes after a row of Tabs
  bool dragging = false;            ///< the pointer is stretching the selection
  bool arranging = false;           ///< columns are being put back in order
  Q_source rearrange;               ///< takes over the order of columns that the user has dragged
  std::unique_ptr<Grid_edit> edit;  ///< while a cell is edited
  ~Grid();
};

/// A grid for the document, which must outlive it. `grid->view` is its widget. Columns that are
/// fixed cannot be dragged.
std::unique_ptr<Grid> grid_new(Document* document, Cell_check fault, Grid_events events,
                               bool has_fixed_columns = false);
/// Shows another document from now on.
void grid_set_document(Grid& grid, Document* document);

/// To be called when the document or the checks have changed: shows what they are now.
void grid_refresh(Grid& grid);
/// Redraws the cells, for changes of the checks alone.
void grid_redraw(Grid& grid);

/// The selected cells; nothing when there are no studies.
std::optional<Cell_range> grid_selection(const Grid& grid);
/// Selects the range as far as it exists, with the cursor at its first cell, and scrolls there.
void grid_select(Grid& grid, const Cell_range& range);
/// Moves the cursor, and unless `extends` the selection with it, to the nearest cell that exists.
void grid_move_to(Grid& grid, long row, long column, bool extends = false);

/// Begins to edit the cell at the cursor, with its own text selected or with another text.
void grid_start_edit(Grid& grid, const std::optional<std::string>& text = std::nullopt);
/// Ends editing, if there is any, and stores what has been typed or not.
void grid_finish_edit(Grid& grid, bool stores);

}  // namespace kvo::edit
