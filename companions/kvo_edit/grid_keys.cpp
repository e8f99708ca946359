#include "companions/kvo_edit/grid_keys.h"

#include <gdk/gdkkeysyms.h>

#include <algorithm>

#include "companions/kvo_edit/grid_edit.h"
#include "companions/kvo_edit/operations.h"

namespace kvo::edit {

namespace {

constexpr GdkModifierType NO_TYPING =
    GdkModifierType(GDK_CONTROL_MASK | GDK_MOD1_MASK | GDK_SUPER_MASK | GDK_META_MASK);

struct Step {
  guint key;
  guint keypad_key;
  long rows;
  long columns;
};
constexpr Step ARROWS[] = {
    {GDK_KEY_Up, GDK_KEY_KP_Up, -1, 0},
    {GDK_KEY_Down, GDK_KEY_KP_Down, 1, 0},
    {GDK_KEY_Left, GDK_KEY_KP_Left, 0, -1},
    {GDK_KEY_Right, GDK_KEY_KP_Right, 0, 1},
};

const Step* arrow_of(guint key) {
  const auto* arrow = std::ranges::find_if(
      ARROWS, [key](const Step& step) { return key == step.key || key == step.keypad_key; });
  return arrow == std::end(ARROWS) ? nullptr : arrow;
}

bool is_enter(guint key) {
  return key == GDK_KEY_Return || key == GDK_KEY_KP_Enter || key == GDK_KEY_ISO_Enter;
}

bool is_tab(guint key) {
  return key == GDK_KEY_Tab || key == GDK_KEY_ISO_Left_Tab || key == GDK_KEY_KP_Tab;
}

/// Whether the key begins or continues text, accents and composed characters included.
bool types_text(const GdkEventKey& event) {
  if ((event.state & NO_TYPING) != 0) return false;
  const gunichar character = gdk_keyval_to_unicode(event.keyval);
  if (character != 0 && g_unichar_isprint(character)) return true;
  return event.keyval == GDK_KEY_Multi_key ||
         (event.keyval >= GDK_KEY_dead_grave && event.keyval <= GDK_KEY_dead_belowdiaeresis);
}

/// Down (or up) a row, to where a row of Tabs began.
void move_on_by_enter(Grid& grid, bool back) {
  const long column = grid.return_column >= 0 ? grid.return_column : grid.cursor.column;
  grid_move_to(grid, grid.cursor.row + (back ? -1 : 1), column);
}

/// To the next cell (or the one before), over the ends of rows; `adds` a study behind the last one.
void move_on_by_tab(Grid& grid, bool back, bool adds) {
  const long columns = column_count(grid.document->table);
  const long rows = row_count(grid.document->table);
  const long origin = grid.return_column >= 0 ? grid.return_column : grid.cursor.column;
  long row = grid.cursor.row;
  long column = grid.cursor.column + (back ? -1 : 1);
  if (column >= columns && (row + 1 < rows || adds)) {
    ++row;
    column = 0;
  } else if (column < 0 && row > 0) {
    --row;
    column = columns - 1;
  }
  if (row >= rows && adds) {
    add_studies(*grid.document, rows, 1);
    grid.events.changed();
  }
  grid_move_to(grid, row, column);
  grid.return_column = origin;
}

long rows_on_page(const Grid& grid) {
  GdkRectangle visible;
  GdkRectangle row;
  gtk_tree_view_get_visible_rect(grid.view, &visible);
  gtk_tree_view_get_background_area(grid.view, nullptr, gtk_tree_view_get_column(grid.view, 0),
                                    &row);
  return std::max(1, visible.height / std::max(row.height, 20) - 1);
}

void move_by_arrow(Grid& grid, const Step& arrow, bool to_edge, bool extends) {
  const long far =
      to_edge ? row_count(grid.document->table) + column_count(grid.document->table) : 1;
  grid_move_to(grid, grid.cursor.row + arrow.rows * far, grid.cursor.column + arrow.columns * far,
               extends);
}

/// Home, End, Page Up and Page Down.
bool move_far(Grid& grid, guint key, bool control, bool extends) {
  const Cell_place& cursor = grid.cursor;
  const long last_row = row_count(grid.document->table) - 1;
  const long last_column = column_count(grid.document->table) - 1;
  switch (key) {
    case GDK_KEY_Home:
    case GDK_KEY_KP_Home:
      grid_move_to(grid, control ? 0 : cursor.row, 0, extends);
      return true;
    case GDK_KEY_End:
    case GDK_KEY_KP_End:
      grid_move_to(grid, control ? last_row : cursor.row, last_column, extends);
      return true;
    case GDK_KEY_Page_Up:
    case GDK_KEY_KP_Page_Up:
      grid_move_to(grid, cursor.row - rows_on_page(grid), cursor.column, extends);
      return true;
    case GDK_KEY_Page_Down:
    case GDK_KEY_KP_Page_Down:
      grid_move_to(grid, cursor.row + rows_on_page(grid), cursor.column, extends);
      return true;
    default:
      return false;
  }
}

/// Begins editing with what the key types. The entry gets the key itself, so that its input method
/// takes part from the first character on.
void start_typing(Grid& grid, GdkEventKey& event) {
  if (row_count(grid.document->table) == 0) {
    add_studies(*grid.document, 0, 1);
    grid.events.changed();
  }
  grid_start_edit(grid, "");
  if (grid.edit != nullptr) gtk_widget_event(grid.edit->entry, reinterpret_cast<GdkEvent*>(&event));
}

}  // namespace

gboolean grid_key(Grid& grid, GdkEventKey& event) {
  const bool shift = (event.state & GDK_SHIFT_MASK) != 0;
  const bool control = (event.state & GDK_CONTROL_MASK) != 0;
  if ((event.state & GDK_MOD1_MASK) != 0) return FALSE;
  if (const Step* arrow = arrow_of(event.keyval)) {
    move_by_arrow(grid, *arrow, control, shift);
    return TRUE;
  }
  if (move_far(grid, event.keyval, control, shift)) return TRUE;
  if (control) return FALSE;
  if (is_enter(event.keyval)) {
    move_on_by_enter(grid, shift);
  } else if (is_tab(event.keyval)) {
    move_on_by_tab(grid, shift || event.keyval == GDK_KEY_ISO_Left_Tab, false);
  } else if (event.keyval == GDK_KEY_Escape) {
    grid_move_to(grid, grid.cursor.row, grid.cursor.column);
  } else if (event.keyval == GDK_KEY_BackSpace) {
    grid_start_edit(grid, "");
  } else if (types_text(event)) {
    start_typing(grid, event);
  } else {
    return FALSE;
  }
  return TRUE;
}

gboolean grid_edit_key(Grid& grid, const GdkEventKey& event) {
  if (grid.edit == nullptr) return FALSE;
  const bool shift = (event.state & GDK_SHIFT_MASK) != 0;
  if ((event.state & NO_TYPING) != 0) return FALSE;
  const Step* arrow = arrow_of(event.keyval);
  // In a text that has been begun anew, left and right leave the cell; in an old one they move in
  // it.
  const bool leaves = arrow != nullptr && !shift && (arrow->rows != 0 || grid.edit->text);
  if (event.keyval == GDK_KEY_Escape) {
    grid_finish_edit(grid, false);
  } else if (is_enter(event.keyval)) {
    grid_finish_edit(grid, true);
    move_on_by_enter(grid, shift);
  } else if (is_tab(event.keyval)) {
    grid_finish_edit(grid, true);
    move_on_by_tab(grid, shift || event.keyval == GDK_KEY_ISO_Left_Tab, true);
  } else if (leaves) {
    grid_finish_edit(grid, true);
    move_by_arrow(grid, *arrow, false, false);
  } else {
    return FALSE;
  }
  return TRUE;
}

}  // namespace kvo::edit
