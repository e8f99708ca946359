#pragma once

// Lines of text files and of engine output. A line ends at a line feed, a carriage return, a byte
// of value 255 or the end of the data, and holds at most Q_STRING_MAX bytes: a longer one is cut
// there (before a UTF-8 character that would be torn) and its rest is the next line.

#include <cstddef>
#include <string_view>
#include <vector>

/// Each of these bytes ends a line.
inline constexpr std::string_view Q_LINE_ENDS = "\n\r\xFF";

/// The first line of some data.
struct Q_line {
  std::string_view text;  ///< without the byte that ends it
  std::size_t consumed;   ///< bytes that the line and its end take up
  bool complete;          ///< false when only the end of the data ends it
};
Q_line Q_first_line(std::string_view data);

/// All lines of a whole file's content. What stands after the last line end is the last line, also
/// when it is empty, so the list is never empty.
std::vector<std::string_view> Q_split_lines(std::string_view content);
