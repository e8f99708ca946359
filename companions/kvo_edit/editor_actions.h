#pragma once

// The editor's menus, toolbar and keys.

#include "companions/kvo_edit/editor.h"

namespace kvo::edit {

/// Menus, toolbar ("/toolbar") and the menus of the context ("/cells", "/menubar"), for
/// GtkUIManager.
extern const char* const editor_ui_description;

/// All actions, bound to the editor.
GtkActionGroup* editor_new_actions(Editor& editor);
/// Makes those actions sensitive that can do something now, and names the next undo and redo.
void editor_adjust_actions(Editor& editor);
/// Asks for the name of a variable and changes it.
void editor_rename_variable(Editor& editor, long column);

}  // namespace kvo::edit
