#pragma once

// Tables in the console, whose text is monospaced.

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace kvo::base {

/// Lines with aligned columns, separated by two blanks. `alignment` has a letter for each column:
/// "l" for texts, "r" for numbers. Missing cells are left empty. Wide and combining characters
/// count by their display width.
std::vector<std::string> aligned_lines(std::span<const std::vector<std::string>> rows,
                                       std::string_view alignment);

/// Says the lines of such a table to the user.
void say_table(std::span<const std::vector<std::string>> rows, std::string_view alignment);

}  // namespace kvo::base
