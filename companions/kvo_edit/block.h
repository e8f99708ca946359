#pragma once

// Blocks of cells as spreadsheets exchange them through the clipboard: a line a row, tabs between
// cells, and quotes only around a cell that could not be told from several without them.

#include <string>
#include <string_view>
#include <vector>

namespace kvo::edit {

/// Rows of cells, which may differ in length.
using Block = std::vector<std::vector<std::string>>;

/// The block that a text holds. Lines end with a line feed, a carriage return or both; one at the
/// end of the text begins no further row. A cell in double quotes is taken apart, with doubled
/// quotes inside halved, when the quotes are needed; other quotes are part of the cell. Blanks
/// around a cell are dropped. An empty text is an empty block.
Block parse_block(std::string_view text);

/// The text that holds a block, each row ended by a line feed.
std::string format_block(const Block& block);

}  // namespace kvo::edit
