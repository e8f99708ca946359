#include "companions/common/csv.h"

#include <string_view>

#include "companions/common/text_file.h"

namespace {

bool looks_like_formula(std::string_view cell) {
  if (cell.empty() || number_of(cell)) return false;
  return static_cast<unsigned char>(cell.front()) < ' ' ||
         std::string_view("=+-@").find(cell.front()) != std::string_view::npos;
}

std::string csv_cell(const std::string& text) {
  const std::string cell = (looks_like_formula(text) ? "'" : "") + text;
  if (cell.find_first_of(",\"\r\n") == std::string::npos) return cell;
  std::string quoted = "\"";
  for (const char c : cell) quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
  return quoted + "\"";
}

}  // namespace

std::string csv_line(std::span<const std::string> cells) {
  std::string line;
  for (std::size_t i = 0; i < cells.size(); ++i) line += (i > 0 ? "," : "") + csv_cell(cells[i]);
  return line + "\n";
}
