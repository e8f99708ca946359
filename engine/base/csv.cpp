#include "engine/base/csv.h"

#include <string_view>

#include "engine/base/text_file.h"

namespace kvo::base {

namespace {

bool looks_like_formula(std::string_view cell) {
  if (cell.empty() || number_of(cell)) return false;
  return static_cast<unsigned char>(cell.front()) < ' ' ||
         std::string_view("=+-@").find(cell.front()) != std::string_view::npos;
}

std::string csv_cell(std::string_view text) {
  std::string cell(looks_like_formula(text) ? "'" : "");
  cell += text;
  if (cell.find_first_of(",\"\r\n") == std::string::npos) return cell;
  std::string quoted(1, '"');
  for (const char c : cell) quoted.append(c == '"' ? 2 : 1, c);
  return quoted + '"';
}

}  // namespace

std::string csv_line(std::span<const std::string> cells) {
  std::string line;
  for (const std::string& cell : cells) {
    if (&cell != cells.data()) line += ',';
    line += csv_cell(cell);
  }
  return line + '\n';
}

}  // namespace kvo::base
