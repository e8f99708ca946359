#pragma once

// Tables in the console, whose text is monospaced.

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace kvo::base {

/// Lines whose cells stand below each other, two blanks between them. `alignment` has a letter for
/// each column: "l" for texts, "r" for numbers. Cells that a row does not have are empty. Wide and
/// combining characters are counted for the room that they take.
std::vector<std::string> aligned_lines(std::span<const std::vector<std::string>> rows,
                                       std::string_view alignment);

/// Says the lines of such a table.
void say_table(std::span<const std::vector<std::string>> rows, std::string_view alignment);

}  // namespace kvo::base
