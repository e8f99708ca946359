#include "engine/base/columns.h"

#include <glib.h>

#include <algorithm>

#include "engine/base/progress.h"
#include "util/handles.h"

namespace kvo::base {

namespace {

/// The display width of the text in monospaced character cells.
std::size_t width_of(const std::string& text) {
  const Q_g_memory<char> valid(g_utf8_make_valid(text.data(), gssize(text.size())));
  std::size_t width = 0;
  for (const char* c = valid.get(); *c != '\0'; c = g_utf8_next_char(c)) {
    const gunichar character = g_utf8_get_char(c);
    if (g_unichar_iszerowidth(character) != FALSE) continue;
    width += g_unichar_iswide(character) != FALSE ? 2 : 1;
  }
  return width;
}

}  // namespace

std::vector<std::string> aligned_lines(std::span<const std::vector<std::string>> rows,
                                       std::string_view alignment) {
  std::vector<std::size_t> widths(alignment.size());
  for (const std::vector<std::string>& row : rows)
    for (std::size_t c = 0; c < row.size(); ++c) widths[c] = std::max(widths[c], width_of(row[c]));
  std::vector<std::string> lines;
  for (const std::vector<std::string>& row : rows) {
    std::string line;
    for (std::size_t c = 0; c < row.size(); ++c) {
      const std::string padding(widths[c] - width_of(row[c]), ' ');
      line += c == 0 ? "" : "  ";
      line += alignment[c] == 'r' ? padding + row[c] : row[c] + padding;
    }
    lines.push_back(line.substr(0, line.find_last_not_of(' ') + 1));
  }
  return lines;
}

void say_table(std::span<const std::vector<std::string>> rows, std::string_view alignment) {
  for (const std::string& line : aligned_lines(rows, alignment)) say(line);
}

}  // namespace kvo::base
