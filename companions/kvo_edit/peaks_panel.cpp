#include "companions/kvo_edit/peaks_panel.h"

#include <gdk/gdkkeysyms.h>

#include <algorithm>
#include <filesystem>
#include <utility>

#include "companions/kvo_edit/block.h"
#include "companions/kvo_edit/editor_dialogs.h"
#include "companions/kvo_edit/grid_edit.h"
#include "companions/kvo_edit/operations.h"
#include "companions/kvo_edit/paste_dialog.h"
#include "companions/kvo_edit/peaks_glass.h"
#include "engine/base/outputs.h"
#include "engine/base/refusal.h"

namespace kvo::edit {

namespace {

constexpr int PANEL_WIDTH = 400;  // pixels
constexpr int SECOND_SPACE = 1;   // of the list

Document& document_of(Peaks_panel& panel) {
  return panel.shown->sheet.document;
}

bool is_editable(const Peaks_panel& panel) {
  return panel.shown != &panel.nothing;
}

GtkWidget* window_of(const Peaks_panel& panel) {
  return gtk_widget_get_toplevel(panel.box);
}

/// What the file's name is where all peaks files are in one folder.
std::string name_of_file(const std::string& path) {
  return std::filesystem::path(path).filename();
}

void show_notes(Peaks_panel& panel) {
  const Peaks_sheet& sheet = panel.shown->sheet;
  const Table& table = sheet.document.table;
  std::string text = space_doubt(sheet, panel.brain);
  const auto add = [&](const std::optional<Fault>& fault) {
    if (fault) text += (text.empty() ? "" : " ") + fault->text;
  };
  add(panel.grid->fault(HEADER, peak_x));
  if (row_count(table) > 0)
    add(panel.grid->fault(panel.grid->cursor.row, panel.grid->cursor.column));
  gtk_label_set_text(GTK_LABEL(panel.notes), text.c_str());
}

/// After a change of the shown peaks.
void refresh(Peaks_panel& panel) {
  grid_refresh(*panel.grid);
  show_notes(panel);
  gtk_widget_queue_draw(panel.glass);
  panel.changed();
}

void select_rows(Peaks_panel& panel, long first, long last) {
  grid_select(*panel.grid, {first, 0, last, peak_comment});
}

void add_peak(Peaks_panel& panel) {
  const auto selection = grid_selection(*panel.grid);
  const long at = selection ? selection->last_row + 1 : 0;
  add_studies(document_of(panel), at, 1);
  refresh(panel);
  grid_move_to(*panel.grid, at, peak_x);
  gtk_widget_grab_focus(GTK_WIDGET(panel.grid->view));
}

void remove_peaks(Peaks_panel& panel) {
  const auto selection = grid_selection(*panel.grid);
  if (!selection) return;
  remove_studies(document_of(panel), selection->first_row, selection->last_row);
  refresh(panel);
  grid_move_to(*panel.grid, selection->first_row, selection->first_column);
}

/// Peaks come behind the selected ones. A single cell is pasted as one.
void paste_peaks(Peaks_panel& panel) {
  const std::string text = clipboard_text();
  const Block block = parse_block(text);
  const auto selection = grid_selection(*panel.grid);
  if (selection && block.size() == 1 && block[0].size() == 1 &&
      block[0][0].find(' ') == std::string::npos) {
    paste_block(document_of(panel), *selection, block, false);
    refresh(panel);
    return;
  }
  if (block.empty()) {
    say_failure(window_of(panel), "There is nothing to paste.",
                "Copy the peaks of a table first, a line for each: from a spreadsheet, or from the "
                "text of a PDF.");
    return;
  }
  const std::vector<std::vector<std::string>> rows = ask_pasted_peaks(window_of(panel), text);
  if (rows.empty()) return;
  const long at = selection ? selection->last_row + 1 : 0;
  Insert_rows edit;
  for (std::size_t n = 0; n < rows.size(); ++n) {
    Table_row row;
    row.cells = rows[n];
    edit.rows.emplace_back(at + static_cast<long>(n), std::move(row));
  }
  const long last = at + static_cast<long>(rows.size()) - 1;
  make_change(document_of(panel), "paste", {std::move(edit)}, {at, 0, last, peak_comment});
  refresh(panel);
  select_rows(panel, at, last);
}

template <std::optional<Cell_range> (*step)(Document&)>
void take_step(Peaks_panel& panel) {
  const std::optional<Cell_range> where = step(document_of(panel));
  if (!where) return;
  refresh(panel);
  grid_select(*panel.grid, *where);
}

void copy_peaks(Peaks_panel& panel) {
  const auto selection = grid_selection(*panel.grid);
  if (!selection) return;
  const std::string text =
      shown_text(format_block(copy_cells(document_of(panel), *selection, false)));
  gtk_clipboard_set_text(gtk_clipboard_get(GDK_SELECTION_CLIPBOARD), text.c_str(),
                         static_cast<int>(text.size()));
}

void clear_peaks(Peaks_panel& panel) {
  const auto selection = grid_selection(*panel.grid);
  if (!selection) return;
  clear_cells(document_of(panel), *selection);
  refresh(panel);
}

void cut_peaks(Peaks_panel& panel) {
  copy_peaks(panel);
  clear_peaks(panel);
}

/// Calls a handler when no cell is being edited any more.
template <void (*handler)(Peaks_panel&)>
void act(Peaks_panel& panel) {
  grid_finish_edit(*panel.grid, true);
  if (is_editable(panel)) handler(panel);
}

struct Tool {
  const char *label, *tooltip;
  void (*handler)(Peaks_panel&);
};
constexpr Tool TOOLS[] = {
    {"Add", "Add a peak below the selected ones (Ctrl+Enter)", act<add_peak>},
    {"Remove", "Remove the selected peaks (Ctrl+minus)", act<remove_peaks>},
    {"Paste...", "Paste peaks of a spreadsheet or of a PDF's text (Ctrl+V)", act<paste_peaks>},
    {"Undo", "Take back the last change of these peaks (Ctrl+Z)", act<take_step<undo>>},
};

struct Key {
  guint key;
  void (*handler)(Peaks_panel&);
};
constexpr Key CONTROL_KEYS[] = {
    {GDK_KEY_c, act<copy_peaks>},       {GDK_KEY_x, act<cut_peaks>},
    {GDK_KEY_v, act<paste_peaks>},      {GDK_KEY_z, act<take_step<undo>>},
    {GDK_KEY_y, act<take_step<redo>>},  {GDK_KEY_Return, act<add_peak>},
    {GDK_KEY_minus, act<remove_peaks>},
};

void on_tool(GtkWidget* button, gpointer data) {
  const auto* tool = static_cast<const Tool*>(g_object_get_data(G_OBJECT(button), "tool"));
  tool->handler(*static_cast<Peaks_panel*>(data));
}

void on_space(GtkWidget* list, gpointer data) {
  Peaks_panel& panel = *static_cast<Peaks_panel*>(data);
  if (panel.showing || !is_editable(panel)) return;
  const int chosen = gtk_combo_box_get_active(GTK_COMBO_BOX(list));
  panel.shown->sheet.space = chosen == SECOND_SPACE ? Space::talairach : Space::mni;
  refresh(panel);
}

GtkWidget* new_head(Peaks_panel& panel) {
  GtkWidget* row = gtk_hbox_new(FALSE, 6);
  panel.title = gtk_label_new("");
  gtk_misc_set_alignment(GTK_MISC(panel.title), 0, 0.5);
  gtk_label_set_ellipsize(GTK_LABEL(panel.title), PANGO_ELLIPSIZE_END);
  panel.space = gtk_combo_box_new_text();
  for (const Space space : {Space::mni, Space::talairach})
    gtk_combo_box_append_text(GTK_COMBO_BOX(panel.space), name_of(space));
  gtk_widget_set_tooltip_text(panel.space, "The space of the study's coordinates");
  g_signal_connect(panel.space, "changed", G_CALLBACK(on_space), &panel);
  gtk_box_pack_start(GTK_BOX(row), panel.title, TRUE, TRUE, 0);
  gtk_box_pack_start(GTK_BOX(row), panel.space, FALSE, FALSE, 0);
  panel.tools.push_back(panel.space);
  return row;
}

GtkWidget* new_tools(Peaks_panel& panel) {
  GtkWidget* row = gtk_hbox_new(TRUE, 4);
  for (const Tool& tool : TOOLS) {
    GtkWidget* button = gtk_button_new_with_label(tool.label);
    gtk_widget_set_tooltip_text(button, tool.tooltip);
    g_object_set_data(G_OBJECT(button), "tool", const_cast<Tool*>(&tool));
    g_signal_connect(button, "clicked", G_CALLBACK(on_tool), &panel);
    gtk_box_pack_start(GTK_BOX(row), button, TRUE, TRUE, 0);
    panel.tools.push_back(button);
  }
  return row;
}

void make_grid(Peaks_panel& panel) {
  Grid_events events;
  events.changed = [&panel] { refresh(panel); };
  events.moved = [&panel] {
    show_notes(panel);
    gtk_widget_queue_draw(panel.glass);
  };
  events.rename = [](long /*column*/) {};
  events.menu = [](guint /*button*/, guint32 /*time*/) {};
  panel.grid = grid_new(
      &panel.shown->sheet.document,
      [&panel](long row, long column) {
        return fault_of_peak(panel.shown->sheet, panel.shown->facts, panel.brain, row, column);
      },
      std::move(events), true);
}

Glass_peaks peaks_to_draw(const Peaks_panel& panel) {
  Glass_peaks shown{drawn_peaks(panel.shown->sheet), -1, -1};
  if (const auto selection = grid_selection(*panel.grid)) {
    shown.first_row = selection->first_row;
    shown.last_row = selection->last_row;
  }
  return shown;
}

/// Shows an entry; `text` says what cannot be shown otherwise.
void show(Peaks_panel& panel, Peaks_panel::Entry& entry, const std::string& title,
          const std::string& text) {
  const bool is_other = panel.shown != &entry;
  panel.shown = &entry;
  panel.showing = true;
  gtk_combo_box_set_active(GTK_COMBO_BOX(panel.space),
                           entry.sheet.space == Space::talairach ? SECOND_SPACE : 0);
  panel.showing = false;
  gtk_label_set_text(GTK_LABEL(panel.title), title.c_str());
  for (GtkWidget* tool : panel.tools) gtk_widget_set_sensitive(tool, is_editable(panel));
  gtk_widget_set_sensitive(GTK_WIDGET(panel.grid->view), is_editable(panel));
  if (is_other)
    grid_set_document(*panel.grid, &entry.sheet.document);
  else
    grid_refresh(*panel.grid);
  show_notes(panel);
  if (!text.empty()) gtk_label_set_text(GTK_LABEL(panel.notes), text.c_str());
  gtk_widget_queue_draw(panel.glass);
}

/// Forgets the peaks that have been shown and not changed.
void forget_unchanged(Peaks_panel& panel, const std::string& but) {
  std::erase_if(panel.entries, [&](const auto& each) {
    return each.first != but && !has_changes(each.second.sheet);
  });
}

}  // namespace

std::unique_ptr<Peaks_panel> peaks_panel_new(std::vector<bool> brain,
                                             std::function<void()> changed) {
  auto panel = std::make_unique<Peaks_panel>();
  panel->brain = std::move(brain);
  panel->changed = std::move(changed);
  panel->nothing.sheet = open_peaks_sheet("", {});
  panel->shown = &panel->nothing;
  panel->box = gtk_vbox_new(FALSE, 6);
  gtk_container_set_border_width(GTK_CONTAINER(panel->box), 4);
  gtk_widget_set_size_request(panel->box, PANEL_WIDTH, -1);
  panel->glass =
      peaks_glass_new(panel->brain, [shown = panel.get()] { return peaks_to_draw(*shown); });
  make_grid(*panel);
  panel->notes = gtk_label_new("");
  gtk_label_set_line_wrap(GTK_LABEL(panel->notes), TRUE);
  gtk_misc_set_alignment(GTK_MISC(panel->notes), 0, 0);
  gtk_widget_set_size_request(panel->notes, PANEL_WIDTH - 12, -1);
  const auto pack = [&](GtkWidget* child, bool expands) {
    gtk_box_pack_start(GTK_BOX(panel->box), child, expands, expands, 0);
  };
  pack(new_head(*panel), false);
  pack(new_scrolled(GTK_WIDGET(panel->grid->view)), true);
  pack(new_tools(*panel), false);
  pack(panel->notes, false);
  pack(panel->glass, false);
  return panel;
}

void peaks_panel_show(Peaks_panel& panel, const Shown_study& study) {
  grid_finish_edit(*panel.grid, true);
  const auto found = panel.entries.find(study.path);
  if (found != panel.entries.end() &&
      (has_changes(found->second.sheet) || !changed_on_disk(found->second.sheet))) {
    found->second.facts = study.facts;
    show(panel, found->second, "Peaks of " + shown_text(study.name), "");
    return;
  }
  std::string fault = study.name.empty() ? "No study." : "";
  if (study.has_image) fault = "The study has an image, which tells more than peaks.";
  try {
    if (fault.empty()) {
      Peaks_panel::Entry read{open_peaks_sheet(study.path, study.facts), study.facts};
      const bool is_shown = found != panel.entries.end() && panel.shown == &found->second;
      Peaks_panel::Entry& entry = panel.entries[study.path];
      entry = std::move(read);
      if (!is_shown) panel.shown = &panel.nothing;
      show(panel, entry, "Peaks of " + shown_text(study.name), "");
      forget_unchanged(panel, study.path);
      return;
    }
  } catch (const Refusal& refusal) {
    fault = refusal.what();
  }
  show(panel, panel.nothing, study.name.empty() ? "" : "Peaks of " + shown_text(study.name),
       shown_text(fault));
  forget_unchanged(panel, "");
}

bool peaks_panel_has_changes(const Peaks_panel& panel) {
  return std::ranges::any_of(panel.entries,
                             [](const auto& each) { return has_changes(each.second.sheet); });
}

std::vector<std::string> peaks_panel_conflicts(const Peaks_panel& panel) {
  std::vector<std::string> names;
  for (const auto& [path, entry] : panel.entries)
    if (has_changes(entry.sheet) && changed_on_disk(entry.sheet))
      names.push_back(name_of_file(path));
  return names;
}

void peaks_panel_save(Peaks_panel& panel) {
  std::vector<std::pair<Peaks_panel::Entry*, std::string>> texts;
  for (auto& [path, entry] : panel.entries)
    if (has_changes(entry.sheet))
      texts.emplace_back(&entry, peaks_sheet_text(entry.sheet, entry.facts));
  if (texts.empty()) return;
  Outputs outputs;
  for (const auto& [entry, text] : texts) outputs.write_text(name_of_file(entry->sheet.path), text);
  outputs.commit();
  for (auto& [entry, text] : texts) note_saved(entry->sheet, std::move(text));
}

void peaks_panel_forget(Peaks_panel& panel) {
  show(panel, panel.nothing, "", "");
  panel.entries.clear();
}

bool peaks_panel_key(Peaks_panel& panel, const GdkEventKey& event) {
  GtkWidget* focus = gtk_window_get_focus(GTK_WINDOW(window_of(panel)));
  if (focus == nullptr || gtk_widget_is_ancestor(focus, panel.box) == FALSE) return false;
  const guint modifiers = event.state & gtk_accelerator_get_default_mod_mask();
  if (modifiers == 0 && event.keyval == GDK_KEY_Delete) {
    act<clear_peaks>(panel);
    return true;
  }
  if (modifiers != GDK_CONTROL_MASK) return false;
  const auto* key = std::ranges::find(CONTROL_KEYS, gdk_keyval_to_lower(event.keyval), &Key::key);
  if (key == std::end(CONTROL_KEYS)) return false;
  key->handler(panel);
  return true;
}

}  // namespace kvo::edit
