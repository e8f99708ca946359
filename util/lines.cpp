#include "util/lines.h"

#include "util/q_string.h"

Q_line Q_first_line(std::string_view data) {
  // One byte more than a line holds may be needed to find its end.
  const std::size_t end = data.substr(0, Q_STRING_MAX + 1).find_first_of(Q_LINE_ENDS);
  if (end != std::string_view::npos) return {data.substr(0, end), end + 1, true};
  if (data.size() <= Q_STRING_MAX) return {data, data.size(), false};
  const std::size_t cut = Q_utf8_cut(data, Q_STRING_MAX);
  return {data.substr(0, cut), cut, true};
}

std::vector<std::string_view> Q_split_lines(std::string_view content) {
  std::vector<std::string_view> lines;
  for (;;) {
    const Q_line line = Q_first_line(content);
    lines.push_back(line.text);
    if (!line.complete) return lines;
    content.remove_prefix(line.consumed);
  }
}
