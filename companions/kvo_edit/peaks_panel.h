#pragma once

// The peaks of the study at the cursor, in a grid beside the table, with a small glass brain.

#include <gtk/gtk.h>

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "companions/kvo_edit/grid.h"
#include "companions/kvo_edit/peaks_sheet.h"

namespace kvo::edit {

/// A study of the table, as far as the panel is concerned.
struct Shown_study {
  std::string name;  ///< "" when there is none
  std::string path;  ///< of its peaks file
  bool has_image = false;
  Peak_facts facts;
};

struct Peaks_panel {
  struct Entry {
    Peaks_sheet sheet;
    Peak_facts facts;
  };
  std::map<std::string, Entry> entries;  ///< by the file: that of the shown study, and changed ones
  Entry nothing;                         ///< shown where there are no peaks to edit
  Entry* shown = nullptr;
  std::vector<bool> brain;
  std::function<void()> changed;
  std::unique_ptr<Grid> grid;
  GtkWidget *box = nullptr, *title = nullptr, *space = nullptr, *notes = nullptr, *glass = nullptr;
  std::vector<GtkWidget*> tools;  ///< of no use where there is nothing to edit
  bool showing = false;           ///< widgets are being set, not used
};

/// `panel->box` is its widget. The mask says where the brain is; it may be empty. `changed` is
/// called after each change of peaks.
std::unique_ptr<Peaks_panel> peaks_panel_new(std::vector<bool> brain,
                                             std::function<void()> changed);

/// Shows a study's peaks: those of its file, unless there are changes here. If they cannot be read,
/// it says so.
void peaks_panel_show(Peaks_panel& panel, const Shown_study& study);

bool peaks_panel_has_changes(const Peaks_panel& panel);
/// The names of changed files that another program has changed too.
std::vector<std::string> peaks_panel_conflicts(const Peaks_panel& panel);
/// Writes all changed files or none, into the current folder. Throws Refusal, naming the peak or
/// the file.
void peaks_panel_save(Peaks_panel& panel);
/// Forgets all changes.
void peaks_panel_forget(Peaks_panel& panel);

/// What a key with Control, or Delete, does to the peaks where the keys go to the panel: true when
/// it does something.
bool peaks_panel_key(Peaks_panel& panel, const GdkEventKey& event);

}  // namespace kvo::edit
