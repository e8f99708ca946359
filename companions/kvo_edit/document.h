#pragma once

// The open study table with its history: every change can be taken back and made again.

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "companions/kvo_edit/table.h"

namespace kvo::edit {

/// How the lines of the file are written.
struct Table_format {
  char separator = '\t';
  std::string line_end = "\n";
  bool final_line_end = true;  ///< whether the last line has one
  std::string after_cells;     ///< the separator that follows the last cell, when the file has that
  std::string_view after_rows;  ///< blank lines at the end of the file
};

/// One step of the history.
struct Change {
  std::string label;        ///< what the user did, for the menu: "paste"
  std::vector<Edit> edits;  ///< those that take the step back (or make it again), in order
  Cell_range where;         ///< the cells to look at
};

struct Document {
  std::string path;
  Table table;
  Table_format format;
  std::shared_ptr<const std::string> loaded;  ///< what the rows' sources refer to
  std::optional<std::string> on_disk;         ///< the file's content when last read or written
  std::vector<Change> undo_steps;
  std::vector<Change> redo_steps;
  std::optional<std::size_t> saved_at = 0;  ///< number of undo steps at which file and table agree
};

/// Makes the edits one after the other, as one step of the history. Nothing without edits.
void make_change(Document& document, std::string label, std::vector<Edit> edits, Cell_range where);
/// Takes back, or makes again, one step; the cells that it is about, nothing when there is no step.
std::optional<Cell_range> undo(Document& document);
std::optional<Cell_range> redo(Document& document);

/// Whether the table differs from what was loaded or saved last.
bool has_changes(const Document& document);

}  // namespace kvo::edit
