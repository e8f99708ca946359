#pragma once

// Tables as comma-separated values (RFC 4180) that spreadsheets open.

#include <span>
#include <string>
#include <string_view>

namespace kvo::base {

/// The text in double quotes, with those inside it doubled.
std::string in_quotes(std::string_view text);

/// A line of a table, including the line end. Cells with commas, quotes or line ends are quoted. A
/// text that a spreadsheet would take for a formula, because it begins with =, +, -, @ or a control
/// character, gets a leading apostrophe; a number stays as it is.
std::string csv_line(std::span<const std::string> cells);

}  // namespace kvo::base
