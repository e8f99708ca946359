#pragma once

// The editor's window: the grid with menus, toolbar and status line around it.

#include <gtk/gtk.h>

#include <memory>
#include <string>

#include "companions/kvo_edit/checks.h"
#include "companions/kvo_edit/document.h"
#include "companions/kvo_edit/grid.h"
#include "companions/kvo_edit/peaks_panel.h"
#include "util/handles.h"

namespace kvo::edit {

struct Editor {
  Document document;
  Check_index index;
  std::unique_ptr<Grid> grid;
  std::unique_ptr<Peaks_panel> peaks;  ///< of the study at the cursor
  GtkWidget* window = nullptr;
  GtkUIManager* manager = nullptr;
  GtkActionGroup* actions = nullptr;
  std::string example;             ///< the file of the bundled studies
  GtkWidget* beginning = nullptr;  ///< what to begin with, where there are no studies yet
  GtkWidget* status = nullptr;     ///< what there is to say about the cell at the cursor
  GtkWidget* counts = nullptr;     ///< studies, variables and marks
  Q_source recount;                ///< counts the marks anew when there is time
  bool closed = false;
  ~Editor();
};

/// Makes the window and shows it in front. `brain` says for each voxel of the MNI grid whether it
/// is in the brain; it may be empty.
std::unique_ptr<Editor> editor_open(Document document, std::vector<bool> brain = {});
/// Whether the table or any peaks have changes that are not saved.
bool editor_has_changes(const Editor& editor);

/// Shows what the document is now; to be called after every change of it.
void editor_refresh(Editor& editor);
/// Looks at the folder and the marks again.
void editor_recheck(Editor& editor);
/// Asks about changes that are not saved, and unless the user cancels, destroys the window and ends
/// the main loop. True when that has happened.
bool editor_close(Editor& editor);
/// Saves, after asking when another program has changed the file. False when it has not been saved;
/// the user has been told why.
bool editor_save(Editor& editor);
/// Puts the file's content of now into the editor.
void editor_reload(Editor& editor);

}  // namespace kvo::edit
