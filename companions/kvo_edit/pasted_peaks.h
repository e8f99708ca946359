#pragma once

// Peaks in a block of text from anywhere: cells of a spreadsheet, or lines of a table in a PDF.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "companions/kvo_edit/edit_layer.h"
#include "engine/studies/peak_value.h"

namespace kvo::edit {

/// A line of the block: its numbers, "" in the place of a cell that is none, and all else.
struct Pasted_line {
  std::size_t number = 0;  ///< of the line
  std::vector<std::string> numbers;
  std::string words;
};

/// The lines that are not blank. In lines with tabs each cell has a place; in others the numbers
/// are the longest row of them without a word between. With `decimal_comma` "4,51" is a number,
/// else "1,234" is one thousand.
std::vector<Pasted_line> pasted_lines(std::string_view text, bool decimal_comma);

/// Which numbers of a line are what; places are counted from 0.
struct Pasted_places {
  std::size_t x = 0;  ///< y and z follow
  std::optional<std::size_t> value;
  ValueKind kind = ValueKind::t;
  bool operator==(const Pasted_places&) const = default;
};

/// The likely ones: coordinates are three whole numbers that fit into a head, and some of them are
/// negative.
Pasted_places guessed_places(const std::vector<Pasted_line>& lines);

/// Rows for the table of a Peaks_sheet, and why lines gave none, a sentence each.
struct Pasted_peaks {
  std::vector<std::vector<std::string>> rows;
  std::vector<std::string> dropped;
};
Pasted_peaks pasted_peaks(const std::vector<Pasted_line>& lines, const Pasted_places& places);

}  // namespace kvo::edit
