#include "companions/kvo_edit/editor.h"

#include <gdk/gdkx.h>

#include <filesystem>
#include <utility>

#include "companions/kvo_edit/editor_actions.h"
#include "companions/kvo_edit/editor_dialogs.h"
#include "companions/kvo_edit/grid_edit.h"
#include "companions/kvo_edit/peaks.h"
#include "companions/kvo_edit/table_file.h"
#include "companions/kvo_edit/table_folder.h"
#include "engine/base/refusal.h"
#include "engine/base/wording.h"
#include "engine/studies/study_rules.h"
#include "util/handles.h"
#include "util/q_string.h"
#include "util/text.h"

namespace kvo::edit {

namespace {

constexpr int DEFAULT_WIDTH = 1120;  // pixels
constexpr int DEFAULT_HEIGHT = 620;  // pixels

std::string shown_file_name(const Editor& editor) {
  const Q_g_memory<char> name(
      g_filename_display_basename(std::filesystem::absolute(editor.document.path).c_str()));
  return name.get();
}

void show_title(Editor& editor) {
  const char* star = editor_has_changes(editor) ? "*" : "";
  const Q_string title = Q_format("%s%s - KVO table editor", star, shown_file_name(editor).c_str());
  gtk_window_set_title(GTK_WINDOW(editor.window), title.c_str());
}

void show_status(Editor& editor) {
  const Table& table = editor.document.table;
  const Cell_place& cursor = editor.grid->cursor;
  std::string text;
  if (row_count(table) == 0) {
    text = "Or type a study's name, or add a study with Ctrl+Enter.";
  } else {
    text = cell_description(table, cursor.row, cursor.column);
    text[0] = g_ascii_toupper(text[0]);
    const auto fault = fault_of(editor.index, table, cursor.row, cursor.column);
    const auto name_fault = fault_of(editor.index, table, HEADER, cursor.column);
    if (fault) text += ": " + fault->text;
    if (name_fault) text += (fault ? " " : ": ") + name_fault->text;
  }
  gtk_label_set_text(GTK_LABEL(editor.status), shown_text(text).c_str());
  gtk_widget_set_tooltip_text(editor.status, shown_text(text).c_str());
}

gboolean count_marks(gpointer data) {
  Editor& editor = *static_cast<Editor*>(data);
  editor.recount.forget();
  const Table& table = editor.document.table;
  const std::size_t marks = all_faults(editor.index, table).size();
  const auto studies = static_cast<std::size_t>(row_count(table));
  const auto variables = static_cast<std::size_t>(column_count(table));
  std::string text =
      Q_counted(studies, "study", "studies") + ", " + Q_counted(variables, "variable", "variables");
  if (marks > 0) text.append(", ").append(Q_counted(marks, "mark (F8)", "marks (F8)"));
  gtk_label_set_text(GTK_LABEL(editor.counts), text.c_str());
  return G_SOURCE_REMOVE;
}

/// When there is time, so that typing does not wait for a large table.
void plan_count(Editor& editor) {
  editor.recount = Q_source(g_idle_add_full(G_PRIORITY_LOW, count_marks, &editor, nullptr));
}

gboolean on_delete(GtkWidget* /*window*/, GdkEvent* /*event*/, gpointer data) {
  editor_close(*static_cast<Editor*>(data));
  return TRUE;
}

gboolean on_focus_in(GtkWidget* /*window*/, GdkEvent* /*event*/, gpointer data) {
  editor_recheck(*static_cast<Editor*>(data));
  return FALSE;
}

/// The keys of an entry that is being edited, and those of the peaks, come before those of the
/// menus: Delete there deletes a character, not the selected cells.
gboolean on_key(GtkWidget* window, GdkEventKey* event, gpointer data) {
  const Editor& editor = *static_cast<Editor*>(data);
  if (editor.grid->edit == nullptr && editor.peaks->grid->edit == nullptr)
    return peaks_panel_key(*editor.peaks, *event) ? TRUE : FALSE;
  return gtk_window_propagate_key_event(GTK_WINDOW(window), event);
}

void on_menu(Editor& editor, guint button, guint32 time) {
  GtkWidget* menu = gtk_ui_manager_get_widget(editor.manager, "/cells");
  gtk_menu_popup(GTK_MENU(menu), nullptr, nullptr, nullptr, nullptr, button, time);
}

GtkWidget* new_toolbar(Editor& editor) {
  GtkWidget* toolbar = gtk_ui_manager_get_widget(editor.manager, "/toolbar");
  gtk_toolbar_set_style(GTK_TOOLBAR(toolbar), GTK_TOOLBAR_BOTH);
  for (int i = 0; i < gtk_toolbar_get_n_items(GTK_TOOLBAR(toolbar)); ++i)
    gtk_tool_item_set_homogeneous(gtk_toolbar_get_nth_item(GTK_TOOLBAR(toolbar), i), FALSE);
  return toolbar;
}

/// Shown as long as there are no studies.
GtkWidget* new_beginning(Editor& editor) {
  GtkWidget* box = gtk_hbox_new(FALSE, 8);
  gtk_container_set_border_width(GTK_CONTAINER(box), 8);
  gtk_box_pack_start(GTK_BOX(box), gtk_label_new("There are no studies yet. Begin with"), FALSE,
                     FALSE, 0);
  for (const auto& [label, action] :
       {std::pair{"Paste from a spreadsheet", "paste_studies"},
        std::pair{"Import a file...", "import"}, std::pair{"The example", "example"}}) {
    GtkWidget* button = gtk_button_new_with_label(label);
    GtkAction* does = gtk_action_group_get_action(editor.actions, action);
    gtk_widget_set_tooltip_text(button, gtk_action_get_tooltip(does));
    g_signal_connect_swapped(button, "clicked", G_CALLBACK(gtk_action_activate), does);
    gtk_box_pack_start(GTK_BOX(box), button, FALSE, FALSE, 0);
  }
  gtk_widget_show_all(box);
  gtk_widget_set_no_show_all(box, TRUE);
  editor.beginning = box;
  return box;
}

GtkWidget* new_status_line(Editor& editor) {
  GtkWidget* box = gtk_hbox_new(FALSE, 12);
  editor.status = gtk_label_new("");
  editor.counts = gtk_label_new("");
  gtk_misc_set_alignment(GTK_MISC(editor.status), 0, 0.5);
  gtk_label_set_ellipsize(GTK_LABEL(editor.status), PANGO_ELLIPSIZE_END);
  gtk_container_set_border_width(GTK_CONTAINER(box), 4);
  gtk_box_pack_start(GTK_BOX(box), editor.status, TRUE, TRUE, 0);
  gtk_box_pack_end(GTK_BOX(box), editor.counts, FALSE, FALSE, 0);
  return box;
}

/// The study at the cursor, with its files.
Shown_study study_at_cursor(const Editor& editor) {
  const Table& table = editor.document.table;
  Shown_study study;
  if (row_count(table) == 0 || editor.index.study_column < 0) return study;
  const long row = editor.grid->cursor.row;
  const std::string& name = cell(table, row, editor.index.study_column);
  try {
    study.path = peaks_path(editor.document.path, name);
    study.name = name;
  } catch (const Refusal&) {
    return study;
  }
  study.has_image = editor.index.files.contains(image_file_of(name));
  study.facts = peak_facts_of(editor.index, table, row);
  return study;
}

void show_peaks(Editor& editor) {
  peaks_panel_show(*editor.peaks, study_at_cursor(editor));
}

void make_grid(Editor& editor) {
  Grid_events events;
  events.changed = [&editor] { editor_refresh(editor); };
  events.moved = [&editor] {
    show_status(editor);
    show_peaks(editor);
    editor_adjust_actions(editor);
  };
  events.rename = [&editor](long column) { editor_rename_variable(editor, column); };
  events.menu = [&editor](guint button, guint32 time) { on_menu(editor, button, time); };
  editor.grid = grid_new(
      &editor.document,
      [&editor](long row, long column) {
        return fault_of(editor.index, editor.document.table, row, column);
      },
      std::move(events));
}

void make_window(Editor& editor, std::vector<bool> brain) {
  editor.window = gtk_window_new(GTK_WINDOW_TOPLEVEL);
  GtkWindow* window = GTK_WINDOW(editor.window);
  gtk_window_set_default_size(window, DEFAULT_WIDTH, DEFAULT_HEIGHT);
  gtk_window_set_position(window, GTK_WIN_POS_CENTER);
  editor.manager = gtk_ui_manager_new();
  editor.actions = editor_new_actions(editor);
  gtk_ui_manager_insert_action_group(editor.manager, editor.actions, 0);
  GError* error = nullptr;
  if (gtk_ui_manager_add_ui_from_string(editor.manager, editor_ui_description, -1, &error) == 0)
    g_error("The menus cannot be built: %s", error->message);
  gtk_window_add_accel_group(window, gtk_ui_manager_get_accel_group(editor.manager));

  make_grid(editor);
  editor.peaks = peaks_panel_new(std::move(brain), [&editor] {
    show_title(editor);
    editor_adjust_actions(editor);
  });
  GtkWidget* box = gtk_vbox_new(FALSE, 0);
  const auto pack = [box](GtkWidget* child, bool expands) {
    gtk_box_pack_start(GTK_BOX(box), child, expands, expands, 0);
  };
  pack(gtk_ui_manager_get_widget(editor.manager, "/menubar"), false);
  pack(new_toolbar(editor), false);
  pack(new_beginning(editor), false);
  GtkWidget* panes = gtk_hpaned_new();
  gtk_paned_pack1(GTK_PANED(panes), new_scrolled(GTK_WIDGET(editor.grid->view)), TRUE, FALSE);
  gtk_paned_pack2(GTK_PANED(panes), editor.peaks->box, FALSE, FALSE);
  pack(panes, true);
  pack(new_status_line(editor), false);
  gtk_container_add(GTK_CONTAINER(window), box);
  g_signal_connect(window, "delete-event", G_CALLBACK(on_delete), &editor);
  g_signal_connect(window, "focus-in-event", G_CALLBACK(on_focus_in), &editor);
  g_signal_connect(window, "key-press-event", G_CALLBACK(on_key), &editor);
}

/// In front also when the program that has started the editor had the last click.
void present(Editor& editor) {
  gtk_widget_show_all(editor.window);
  GdkWindow* window = gtk_widget_get_window(editor.window);
  const guint32 now = gdk_x11_get_server_time(window);
  gdk_x11_window_set_user_time(window, now);
  gtk_window_present_with_time(GTK_WINDOW(editor.window), now);
  gtk_widget_grab_focus(GTK_WIDGET(editor.grid->view));
}

}  // namespace

Editor::~Editor() {
  grid.reset();
  if (peaks) peaks->grid.reset();
  if (window != nullptr && !closed) gtk_widget_destroy(window);
  if (actions != nullptr) g_object_unref(actions);
  if (manager != nullptr) g_object_unref(manager);
}

std::unique_ptr<Editor> editor_open(Document document, std::vector<bool> brain) {
  auto editor = std::make_unique<Editor>();
  editor->document = std::move(document);
  const std::filesystem::path path = std::filesystem::absolute(editor->document.path);
  refresh_files(editor->index, path.parent_path());
  refresh_names(editor->index, editor->document.table);
  make_window(*editor, std::move(brain));
  editor_refresh(*editor);
  present(*editor);
  return editor;
}

void editor_refresh(Editor& editor) {
  refresh_names(editor.index, editor.document.table);
  grid_refresh(*editor.grid);
  gtk_widget_set_visible(editor.beginning, row_count(editor.document.table) == 0 ? TRUE : FALSE);
  show_title(editor);
  show_status(editor);
  show_peaks(editor);
  plan_count(editor);
  editor_adjust_actions(editor);
}

bool editor_has_changes(const Editor& editor) {
  return has_changes(editor.document) || peaks_panel_has_changes(*editor.peaks);
}

void editor_recheck(Editor& editor) {
  const std::filesystem::path path = std::filesystem::absolute(editor.document.path);
  refresh_files(editor.index, path.parent_path());
  grid_redraw(*editor.grid);
  show_status(editor);
  show_peaks(editor);
  plan_count(editor);
}

namespace {

void finish_edits(Editor& editor) {
  grid_finish_edit(*editor.grid, true);
  grid_finish_edit(*editor.peaks->grid, true);
}

/// What the table says now of the studies whose peaks are open, also of those that the cursor has
/// left.
void renew_facts(Editor& editor) {
  const Table& table = editor.document.table;
  const long column = editor.index.study_column;
  for (long row = 0; column >= 0 && row < row_count(table); ++row) {
    try {
      const auto open =
          editor.peaks->entries.find(peaks_path(editor.document.path, cell(table, row, column)));
      if (open != editor.peaks->entries.end())
        open->second.facts = peak_facts_of(editor.index, table, row);
    } catch (const Refusal&) {
      // A study without a name has no peaks.
    }
  }
}

/// Asks where another program has changed peaks that have been changed here too.
bool agreed_to_overwrite_peaks(Editor& editor) {
  const std::vector<std::string> conflicts = peaks_panel_conflicts(*editor.peaks);
  return conflicts.empty() ||
         ask(editor.window, "Another program has changed peaks. Overwrite them?",
             "Not as they were when they were opened here: " + shown_text(listed(conflicts)) + ".",
             {{"_Overwrite", GTK_RESPONSE_ACCEPT}, {GTK_STOCK_CANCEL, GTK_RESPONSE_CANCEL}}) ==
             GTK_RESPONSE_ACCEPT;
}

}  // namespace

bool editor_save(Editor& editor) {
  finish_edits(editor);
  if (const auto unsavable = first_unsavable(editor.document)) {
    if (unsavable->row != HEADER) grid_move_to(*editor.grid, unsavable->row, unsavable->column);
    say_failure(editor.window, "The table has not been saved.", unsavable->message);
    return false;
  }
  if (changed_on_disk(editor.document) &&
      ask(editor.window, "Another program has changed the file. Overwrite it?",
          Q_format("'%s' is not as it was when it was opened or saved here. Overwriting loses what "
                   "has been changed there; 'Load again' in the menu loses what has been changed "
                   "here.",
                   shown_file_name(editor).c_str())
              .str(),
          {{"_Overwrite", GTK_RESPONSE_ACCEPT}, {GTK_STOCK_CANCEL, GTK_RESPONSE_CANCEL}}) !=
          GTK_RESPONSE_ACCEPT)
    return false;
  if (!agreed_to_overwrite_peaks(editor)) return false;
  try {
    const Table_folder folder(editor.document.path);
    renew_facts(editor);
    peaks_panel_save(*editor.peaks);
  } catch (const Refusal& refusal) {
    say_failure(editor.window, "Nothing has been saved.", refusal.what());
    return false;
  }
  try {
    if (has_changes(editor.document) || !editor.document.on_disk) save_document(editor.document);
  } catch (const Refusal& refusal) {
    say_failure(editor.window, "The table has not been saved.", refusal.what());
    return false;
  }
  editor_recheck(editor);
  show_title(editor);
  editor_adjust_actions(editor);
  return true;
}

void editor_reload(Editor& editor) {
  finish_edits(editor);
  if (editor_has_changes(editor) &&
      ask(editor.window, "Load the file again and lose the changes?",
          "All that has been changed since the table was last saved will be lost.",
          {{"_Load again", GTK_RESPONSE_ACCEPT}, {GTK_STOCK_CANCEL, GTK_RESPONSE_CANCEL}}) !=
          GTK_RESPONSE_ACCEPT)
    return;
  try {
    editor.document = open_document(editor.document.path);
    peaks_panel_forget(*editor.peaks);
  } catch (const Refusal& refusal) {
    say_failure(editor.window, "The table has not been loaded.", refusal.what());
  }
  editor_refresh(editor);
  editor_recheck(editor);
}

bool editor_close(Editor& editor) {
  finish_edits(editor);
  if (editor_has_changes(editor)) {
    const int answer = ask(editor.window, "Save the changes to '" + shown_file_name(editor) + "'?",
                           "Without saving, they will be lost.",
                           {{"_Don't save", GTK_RESPONSE_REJECT},
                            {GTK_STOCK_CANCEL, GTK_RESPONSE_CANCEL},
                            {GTK_STOCK_SAVE, GTK_RESPONSE_ACCEPT}});
    if (answer == GTK_RESPONSE_CANCEL) return false;
    if (answer == GTK_RESPONSE_ACCEPT && !editor_save(editor)) return false;
  }
  editor.closed = true;
  editor.recount = Q_source();
  gtk_widget_destroy(editor.window);
  if (gtk_main_level() > 0) gtk_main_quit();
  return true;
}

}  // namespace kvo::edit
