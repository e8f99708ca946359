#pragma once

// What the user can do to the table: each is one step of the document's history. Positions must
// exist unless it is said otherwise.

#include <string>
#include <string_view>

#include "companions/kvo_edit/block.h"
#include "companions/kvo_edit/document.h"

namespace kvo::edit {

/// Stores the text in a cell, or as the name of a variable (row HEADER). A text for a missing value
/// in a cell that misses its value is no change.
void set_text(Document& document, long row, long column, const std::string& text);
/// Makes all values of the range missing.
void clear_cells(Document& document, const Cell_range& range);
/// Puts "_" for each separator in the cells of the range and, with `names`, in the names above it.
void replace_separators(Document& document, const Cell_range& range, bool names);

/// Adds studies, without values, before position `at`.
void add_studies(Document& document, long at, long count);
/// Adds a variable, without values, before position `at`.
void add_variable(Document& document, long at, const std::string& name);
void remove_studies(Document& document, long first, long last);
/// False, with nothing done, when no variable would be left.
bool remove_variables(Document& document, long first, long last);
/// Moves the studies by one position, down or up; false when there is no room.
bool move_studies(Document& document, long first, long last, bool down);
/// Moves the variables by one position, right or left; false when there is no room.
bool move_variables(Document& document, long first, long last, bool right);
/// Moves one variable to another position.
void place_variable(Document& document, long from, long to);

/// Orders the studies by a variable: numbers by value, before texts in alphabetical order without
/// regard to case, before missing values. Equal ones keep their order, also when descending.
void sort_studies(Document& document, long column, bool descending);

/// The cells of the range as a block, with missing values as "NA" and with `names` the names of
/// the variables as its first row.
Block copy_cells(const Document& document, const Cell_range& range, bool names);
/// Pastes the block with its first cell at the first cell of the range, adding studies and
/// variables as needed; cells that a short row does not have become missing. A block of one cell
/// fills the whole range. With `names` the block's first row names the variables from there on.
/// Returns the cells that the block has taken.
Cell_range paste_block(Document& document, const Cell_range& range, const Block& block, bool names);

/// "variable1", or with the next number that no variable's name has.
std::string new_variable_name(const Table& table);

}  // namespace kvo::edit
