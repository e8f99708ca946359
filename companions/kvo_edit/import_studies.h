#pragma once

// Studies of another program's file, or of its clipboard, taken into the table and its folder.

#include <string>
#include <vector>

#include "companions/kvo_edit/editor.h"

namespace kvo::edit {

/// Asks for a file, shows what it holds, and when the user agrees adds its studies to the table's
/// file and their peaks files to its folder, all or nothing. The editor shows the file afterwards.
void import_studies(Editor& editor);
/// The same of a block on the clipboard, with one peak a line and the names of its columns first,
/// as spreadsheets copy them.
void import_pasted_studies(Editor& editor);
/// The same of the bundled studies.
void import_example(Editor& editor);

/// Whether such a block has columns of coordinates.
bool names_coordinates(const std::string& block);
/// Whether the cells name columns, one of them that of the studies. Those of studies and samples,
/// such as "Author" and "N", get the names that a study table has for them.
bool names_studies(std::vector<std::string>& cells);

}  // namespace kvo::edit
