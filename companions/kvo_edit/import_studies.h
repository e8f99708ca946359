#pragma once

// Studies of another program's file, taken into the table and its folder.

#include "companions/kvo_edit/editor.h"

namespace kvo::edit {

/// Asks for a file, shows what it holds, and when the user agrees adds its studies to the table's
/// file and their peaks files to its folder, all or nothing. The editor shows the file afterwards.
void import_studies(Editor& editor);

}  // namespace kvo::edit
