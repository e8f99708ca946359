#include "util/lines.h"

#include <array>
#include <utility>

#include "util/error.h"
#include "util/files.h"

namespace {
constexpr std::string_view LINE_ENDS = "\n\r\xFF";
}

Q_line Q_first_line(std::string_view data) {
  // One byte more than a line holds may be needed to find its end.
  const std::size_t end = data.substr(0, Q_STRING_MAX + 1).find_first_of(LINE_ENDS);
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

std::optional<std::string> Q_read_file(const char* path) {
  const Q_file file = Q_openr("%s", path);
  if (file == nullptr) return std::nullopt;
  std::string content;
  std::array<char, 65536> block{};
  while (const std::size_t length = std::fread(block.data(), 1, block.size(), file.get()))
    content.append(block.data(), length);
  if (std::ferror(file.get()) != 0) return std::nullopt;
  return content;
}

std::string Q_read_file_or_die(const char* path) {
  std::optional<std::string> content = Q_read_file(path);
  if (content) return *std::move(content);
  Q_openr_or_die("%s", path);
  Q_error("File '%s' not readable", path);
}
