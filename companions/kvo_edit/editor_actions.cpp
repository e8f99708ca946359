#include "companions/kvo_edit/editor_actions.h"

#include <algorithm>

#include "companions/kvo_edit/editor_dialogs.h"
#include "companions/kvo_edit/grid_edit.h"
#include "companions/kvo_edit/import_studies.h"
#include "companions/kvo_edit/operations.h"
#include "companions/kvo_edit/peaks.h"
#include "companions/kvo_edit/peaks_opener.h"
#include "engine/base/refusal.h"
#include "util/handles.h"

namespace kvo::edit {

const char* const editor_ui_description = R"(
<ui>
  <menubar name='menubar'>
    <menu action='file'>
      <menuitem action='save'/><menuitem action='reload'/>
      <separator/><menuitem action='import'/><menuitem action='import_pasted'/>
      <separator/><menuitem action='close'/>
    </menu>
    <menu action='edit'>
      <menuitem action='undo'/><menuitem action='redo'/><separator/>
      <menuitem action='cut'/><menuitem action='copy'/><menuitem action='copy_with_names'/>
      <menuitem action='paste'/><menuitem action='paste_with_names'/><menuitem action='clear'/>
      <separator/>
      <menuitem action='select_all'/><menuitem action='edit_cell'/>
      <menuitem action='replace_separators'/><separator/><menuitem action='next_mark'/>
    </menu>
    <menu action='study'>
      <menuitem action='add_study'/><menuitem action='insert_study'/>
      <menuitem action='remove_study'/><separator/>
      <menuitem action='move_up'/><menuitem action='move_down'/><separator/>
      <menuitem action='open_peaks'/>
    </menu>
    <menu action='variable'>
      <menuitem action='add_variable'/><menuitem action='rename_variable'/>
      <menuitem action='remove_variable'/><separator/>
      <menuitem action='move_left'/><menuitem action='move_right'/><separator/>
      <menuitem action='sort_ascending'/><menuitem action='sort_descending'/>
    </menu>
    <menu action='help'><menuitem action='keys'/><menuitem action='listing'/></menu>
  </menubar>
  <toolbar name='toolbar'>
    <toolitem action='save'/><separator/>
    <toolitem action='undo'/><toolitem action='redo'/><separator/>
    <toolitem action='copy'/><toolitem action='paste'/><separator/>
    <toolitem action='add_study'/><toolitem action='remove_study'/>
    <toolitem action='add_variable'/><toolitem action='remove_variable'/><separator/>
    <toolitem action='sort_ascending'/><toolitem action='sort_descending'/><separator/>
    <toolitem action='open_peaks'/>
  </toolbar>
  <popup name='cells'>
    <menuitem action='cut'/><menuitem action='copy'/><menuitem action='paste'/>
    <menuitem action='clear'/><separator/>
    <menuitem action='insert_study'/><menuitem action='add_study'/><menuitem action='remove_study'/>
    <separator/>
    <menuitem action='add_variable'/><menuitem action='rename_variable'/>
    <menuitem action='remove_variable'/><separator/>
    <menuitem action='sort_ascending'/><menuitem action='sort_descending'/><separator/>
    <menuitem action='open_peaks'/>
  </popup>
</ui>)";

namespace {

Editor& editor_of(gpointer data) {
  return *static_cast<Editor*>(data);
}

/// Where there are no studies yet, what concerns a column or a place still has one.
Cell_range selection_or_cursor(const Editor& editor) {
  const Cell_place& cursor = editor.grid->cursor;
  return grid_selection(*editor.grid)
      .value_or(Cell_range{cursor.row, cursor.column, cursor.row, cursor.column});
}

/// Calls a handler with the editor when no cell is being edited any more. Handlers that need
/// studies are not called without them, as a key may reach an insensitive action's handler late.
template <void (*handler)(Editor&)>
void act(GtkAction* /*action*/, gpointer data) {
  Editor& editor = editor_of(data);
  grid_finish_edit(*editor.grid, true);
  handler(editor);
}

template <void (*handler)(Editor&, const Cell_range&)>
void act_on_selection(GtkAction* /*action*/, gpointer data) {
  Editor& editor = editor_of(data);
  grid_finish_edit(*editor.grid, true);
  if (const auto selection = grid_selection(*editor.grid)) handler(editor, *selection);
}

void save(Editor& editor) {
  editor_save(editor);
}
void close_editor(Editor& editor) {
  editor_close(editor);
}

template <std::optional<Cell_range> (*step)(Document&)>
void take_step(Editor& editor) {
  const std::optional<Cell_range> where = step(editor.document);
  if (!where) return;
  editor_refresh(editor);
  grid_select(*editor.grid, *where);
}

void put_on_clipboard(const Editor& editor, const Cell_range& range, bool names) {
  const std::string text = shown_text(format_block(copy_cells(editor.document, range, names)));
  gtk_clipboard_set_text(gtk_clipboard_get(GDK_SELECTION_CLIPBOARD), text.c_str(),
                         static_cast<int>(text.size()));
}

void copy(Editor& editor, const Cell_range& range) {
  put_on_clipboard(editor, range, false);
}
void copy_with_names(Editor& editor, const Cell_range& range) {
  put_on_clipboard(editor, range, true);
}

void clear(Editor& editor, const Cell_range& range) {
  clear_cells(editor.document, range);
  editor_refresh(editor);
}

void cut(Editor& editor, const Cell_range& range) {
  copy(editor, range);
  clear(editor, range);
}

void put_in(Editor& editor, const Block& block, bool names) {
  if (block.empty()) return;
  const Cell_range pasted = paste_block(editor.document, selection_or_cursor(editor), block, names);
  editor_refresh(editor);
  grid_select(*editor.grid, pasted);
}

void paste(Editor& editor) {
  put_in(editor, parse_block(clipboard_text()), false);
}
void paste_with_names(Editor& editor) {
  put_in(editor, parse_block(clipboard_text()), true);
}

/// Into an empty table: studies with their peaks, or cells of the table with or without names.
void paste_studies(Editor& editor) {
  const std::string text = clipboard_text();
  if (text.empty() || names_coordinates(text)) {
    import_pasted_studies(editor);
    return;
  }
  Block block = parse_block(text);
  const bool names = !block.empty() && names_studies(block.front());
  put_in(editor, block, names);
}

void select_all(Editor& editor, const Cell_range& /*range*/) {
  grid_select(*editor.grid, {0, 0, row_count(editor.document.table) - 1,
                             column_count(editor.document.table) - 1});
}

void edit_cell(Editor& editor, const Cell_range& /*range*/) {
  grid_start_edit(*editor.grid);
}

void mend_separators(Editor& editor, const Cell_range& range) {
  replace_separators(editor.document, range, true);
  editor_refresh(editor);
}

void next_mark(Editor& editor) {
  const std::vector<Cell_place> marks = all_faults(editor.index, editor.document.table);
  if (marks.empty()) return;
  const Cell_place& cursor = editor.grid->cursor;
  const auto next = std::ranges::find_if(marks, [&](const Cell_place& mark) {
    return mark.row > cursor.row || (mark.row == cursor.row && mark.column > cursor.column);
  });
  const Cell_place& mark = next == marks.end() ? marks.front() : *next;
  if (mark.row == HEADER)
    grid_select(*editor.grid, {0, mark.column, row_count(editor.document.table) - 1, mark.column});
  else
    grid_move_to(*editor.grid, mark.row, mark.column);
}

void add_study_at(Editor& editor, long at) {
  add_studies(editor.document, at, 1);
  editor_refresh(editor);
  grid_move_to(*editor.grid, at, std::max(editor.index.study_column, 0L));
}

void add_study(Editor& editor) {
  const auto selection = grid_selection(*editor.grid);
  add_study_at(editor, selection ? selection->last_row + 1 : 0);
}

void insert_study(Editor& editor) {
  add_study_at(editor, selection_or_cursor(editor).first_row);
}

void remove_study(Editor& editor, const Cell_range& range) {
  remove_studies(editor.document, range.first_row, range.last_row);
  editor_refresh(editor);
  grid_move_to(*editor.grid, range.first_row, range.first_column);
}

/// Keeps the moved cells selected.
void follow(Editor& editor, const Cell_range& range, long rows, long columns) {
  editor_refresh(editor);
  grid_select(*editor.grid, {range.first_row + rows, range.first_column + columns,
                             range.last_row + rows, range.last_column + columns});
}

template <bool down>
void move_study(Editor& editor, const Cell_range& range) {
  if (move_studies(editor.document, range.first_row, range.last_row, down))
    follow(editor, range, down ? 1 : -1, 0);
}

template <bool right>
void move_variable(Editor& editor) {
  const Cell_range range = selection_or_cursor(editor);
  if (move_variables(editor.document, range.first_column, range.last_column, right))
    follow(editor, range, 0, right ? 1 : -1);
}

void add_variable_by_name(Editor& editor) {
  const auto name = ask_name(
      editor.window, "Add variable", new_variable_name(editor.document.table),
      [&](const std::string& typed) { return variable_name_fault(editor.index, typed, 0); });
  if (!name) return;
  const long at = selection_or_cursor(editor).last_column + 1;
  add_variable(editor.document, at, *name);
  editor_refresh(editor);
  grid_move_to(*editor.grid, editor.grid->cursor.row, at);
}

void rename_selected_variable(Editor& editor) {
  editor_rename_variable(editor, editor.grid->cursor.column);
}

void remove_variable(Editor& editor) {
  const Cell_range range = selection_or_cursor(editor);
  if (!remove_variables(editor.document, range.first_column, range.last_column)) {
    say_failure(editor.window, "The variables have not been removed.",
                "A table needs at least one variable.");
    return;
  }
  editor_refresh(editor);
  grid_move_to(*editor.grid, range.first_row, range.first_column);
}

template <bool descending>
void sort(Editor& editor, const Cell_range& /*range*/) {
  sort_studies(editor.document, editor.grid->cursor.column, descending);
  editor_refresh(editor);
}

void open_peaks(Editor& editor, const Cell_range& /*range*/) {
  const long column = editor.index.study_column;
  try {
    if (column < 0) throw Refusal("No variable is called 'study'.");
    const std::string path = peaks_path(
        editor.document.path, cell(editor.document.table, editor.grid->cursor.row, column));
    offer_and_open_peaks(editor.window, path);
  } catch (const Refusal& refusal) {
    say_failure(editor.window, "The peaks file cannot be opened.", refusal.what());
  }
  editor_recheck(editor);
}

void say_keys(Editor& editor) {
  say_help(editor.window);
}
void say_listing(Editor& editor) {
  say_listing_help(editor.window);
}

#define ACT(handler) G_CALLBACK(act<handler>)
#define ACT_ON_SELECTION(handler) G_CALLBACK(act_on_selection<handler>)

const GtkActionEntry ENTRIES[] = {
    {"file", nullptr, "_File", nullptr, nullptr, nullptr},
    {"save", GTK_STOCK_SAVE, "_Save", "<control>S", "Save the table", ACT(save)},
    {"reload", GTK_STOCK_REVERT_TO_SAVED, "_Load again", nullptr, "Load the file again",
     ACT(editor_reload)},
    {"import", nullptr, "_Import studies...", "<control>I",
     "Add the studies of a spreadsheet or of another program's file, with their peaks",
     ACT(import_studies)},
    {"import_pasted", nullptr, "Import _pasted studies...", "<control><shift>I",
     "Add the studies of a block on the clipboard, one peak a line, with the names of its columns",
     ACT(import_pasted_studies)},
    {"example", nullptr, "The e_xample", nullptr, "Add 21 studies of pain, to try things with",
     ACT(import_example)},
    {"paste_studies", nullptr, "Paste from a _spreadsheet", nullptr,
     "Paste studies: a line for each study, or for each peak with columns study, n, x, y, z and t",
     ACT(paste_studies)},
    {"close", GTK_STOCK_CLOSE, "_Close", "<control>W", "Close the editor", ACT(close_editor)},
    {"edit", nullptr, "_Edit", nullptr, nullptr, nullptr},
    {"undo", GTK_STOCK_UNDO, "_Undo", "<control>Z", "Take back the last change",
     ACT(take_step<undo>)},
    {"redo", GTK_STOCK_REDO, "_Redo", "<control>Y", "Make the change again", ACT(take_step<redo>)},
    {"cut", GTK_STOCK_CUT, "Cu_t", "<control>X", "Move the selected cells to the clipboard",
     ACT_ON_SELECTION(cut)},
    {"copy", GTK_STOCK_COPY, "_Copy", "<control>C", "Copy the selected cells",
     ACT_ON_SELECTION(copy)},
    {"copy_with_names", nullptr, "Copy with _names", "<control><shift>C",
     "Copy the selected cells with the names of their variables",
     ACT_ON_SELECTION(copy_with_names)},
    {"paste", GTK_STOCK_PASTE, "_Paste", "<control>V", "Paste cells from here on", ACT(paste)},
    {"paste_with_names", nullptr, "Paste _with names", "<control><shift>V",
     "Paste cells whose first row names the variables", ACT(paste_with_names)},
    {"clear", GTK_STOCK_CLEAR, "C_lear", "Delete", "Make the selected values missing",
     ACT_ON_SELECTION(clear)},
    {"select_all", GTK_STOCK_SELECT_ALL, "Select _all", "<control>A", nullptr,
     ACT_ON_SELECTION(select_all)},
    {"edit_cell", GTK_STOCK_EDIT, "_Edit cell", "F2", nullptr, ACT_ON_SELECTION(edit_cell)},
    {"replace_separators", nullptr, "_Replace separators by \"_\"", nullptr,
     "Put \"_\" for each blank, tab and comma in the selected cells and their variables' names",
     ACT_ON_SELECTION(mend_separators)},
    {"next_mark", GTK_STOCK_JUMP_TO, "Go to next _mark", "F8", nullptr, ACT(next_mark)},
    {"study", nullptr, "_Study", nullptr, nullptr, nullptr},
    {"add_study", GTK_STOCK_ADD, "_Add study", "<control>Return",
     "Add a study below the selected ones", ACT(add_study)},
    {"insert_study", nullptr, "_Insert study above", "<control><shift>Return", nullptr,
     ACT(insert_study)},
    {"remove_study", GTK_STOCK_REMOVE, "_Remove study", "<control>minus",
     "Remove the selected studies", ACT_ON_SELECTION(remove_study)},
    {"move_up", GTK_STOCK_GO_UP, "Move _up", "<alt>Up", nullptr,
     ACT_ON_SELECTION(move_study<false>)},
    {"move_down", GTK_STOCK_GO_DOWN, "Move _down", "<alt>Down", nullptr,
     ACT_ON_SELECTION(move_study<true>)},
    {"open_peaks", GTK_STOCK_OPEN, "_Open peaks file", "<control>P",
     "Open the peaks file of the study", ACT_ON_SELECTION(open_peaks)},
    {"variable", nullptr, "_Variable", nullptr, nullptr, nullptr},
    {"add_variable", GTK_STOCK_ADD, "_Add variable...", "<control>plus",
     "Add a variable to the right of the selected ones", ACT(add_variable_by_name)},
    {"rename_variable", nullptr, "Re_name variable...", "<shift>F2",
     "Give the variable another name", ACT(rename_selected_variable)},
    {"remove_variable", GTK_STOCK_REMOVE, "_Remove variable", "<control><shift>minus",
     "Remove the selected variables", ACT(remove_variable)},
    {"move_left", GTK_STOCK_GO_BACK, "Move _left", "<alt>Left", nullptr, ACT(move_variable<false>)},
    {"move_right", GTK_STOCK_GO_FORWARD, "Move _right", "<alt>Right", nullptr,
     ACT(move_variable<true>)},
    {"sort_ascending", GTK_STOCK_SORT_ASCENDING, "_Sort ascending", nullptr,
     "Order the studies by the variable of the cell at the cursor", ACT_ON_SELECTION(sort<false>)},
    {"sort_descending", GTK_STOCK_SORT_DESCENDING, "Sort _descending", nullptr,
     "Order the studies by the variable of the cell at the cursor, from high to low",
     ACT_ON_SELECTION(sort<true>)},
    {"help", nullptr, "_Help", nullptr, nullptr, nullptr},
    {"keys", GTK_STOCK_HELP, "_Keys and marks", "F1", nullptr, ACT(say_keys)},
    {"listing", nullptr, "How studies _list their peaks", nullptr, nullptr, ACT(say_listing)},
};

/// The shorter labels of the toolbar.
constexpr struct {
  const char* action;
  const char* label;
} SHORT_LABELS[] = {
    {"add_study", "Add study"},
    {"remove_study", "Remove"},
    {"add_variable", "Add variable"},
    {"remove_variable", "Remove"},
    {"sort_ascending", "A to Z"},
    {"sort_descending", "Z to A"},
    {"open_peaks", "Peaks"},
    {"undo", "Undo"},
    {"redo", "Redo"},
};

constexpr const char* NEED_STUDIES[] = {"cut",
                                        "copy",
                                        "copy_with_names",
                                        "clear",
                                        "select_all",
                                        "edit_cell",
                                        "remove_study",
                                        "move_up",
                                        "move_down",
                                        "open_peaks",
                                        "sort_ascending",
                                        "sort_descending",
                                        "replace_separators"};

void set_sensitive(Editor& editor, const char* name, bool sensitive) {
  gtk_action_set_sensitive(gtk_action_group_get_action(editor.actions, name), sensitive);
}

void adjust_step(Editor& editor, const char* name, const std::string& label,
                 const std::vector<Change>& steps) {
  GtkAction* action = gtk_action_group_get_action(editor.actions, name);
  const std::string text = steps.empty() ? label : label + ": " + steps.back().label;
  gtk_action_set_label(action, text.c_str());
  gtk_action_set_sensitive(action, !steps.empty());
}

}  // namespace

GtkActionGroup* editor_new_actions(Editor& editor) {
  GtkActionGroup* group = gtk_action_group_new("editor");
  gtk_action_group_add_actions(group, ENTRIES, G_N_ELEMENTS(ENTRIES), &editor);
  for (const auto& entry : SHORT_LABELS)
    gtk_action_set_short_label(gtk_action_group_get_action(group, entry.action), entry.label);
  return group;
}

void editor_adjust_actions(Editor& editor) {
  const Document& document = editor.document;
  set_sensitive(editor, "save", editor_has_changes(editor) || !document.on_disk);
  adjust_step(editor, "undo", "_Undo", document.undo_steps);
  adjust_step(editor, "redo", "_Redo", document.redo_steps);
  const bool has_studies = row_count(document.table) > 0;
  for (const char* name : NEED_STUDIES) set_sensitive(editor, name, has_studies);
}

void editor_rename_variable(Editor& editor, long column) {
  const std::string old = cell(editor.document.table, HEADER, column);
  const auto name =
      ask_name(editor.window, "Rename variable", shown_text(old), [&](const std::string& typed) {
        return variable_name_fault(editor.index, typed, typed == old ? 1 : 0);
      });
  if (!name) return;
  set_text(editor.document, HEADER, column, *name);
  editor_refresh(editor);
}

}  // namespace kvo::edit
