#include "shell/batch_text.h"

#include <glib.h>

#include <algorithm>
#include <array>

#include "util/lines.h"
#include "util/q_string.h"
#include "util/text.h"
#include "workspace/files/file_names.h"

namespace {

constexpr const char* ZERO_BYTE = "\u2400";

/// A line that is not UTF-8, as one that a pane can hold.
std::string shown_line(const std::string& line) {
  std::string without_zeros;
  std::string as_latin;
  for (const char byte : line) {
    std::array<char, 7> character{};
    g_unichar_to_utf8(static_cast<unsigned char>(byte), character.data());
    without_zeros += byte == '\0' ? ZERO_BYTE : std::string(1, byte);
    as_latin += byte == '\0' ? ZERO_BYTE : character.data();
  }
  return Q_is_utf8(without_zeros) ? without_zeros : as_latin;
}

/// Whether the shell would do more with a line than to hand its words to the engine: run other
/// commands or open files.
bool runs_in_shell(std::string_view line) {
  constexpr std::string_view ACTING = ";&|<>()";
  const std::size_t start = line.find_first_not_of(Q_WHITE_SPACE);
  if (start == std::string_view::npos || line[start] == '#') return false;
  char quote = 0;  // the one that is open
  char previous = 0;
  for (std::size_t i = start; i < line.size(); ++i) {
    const char c = line[i];
    if (quote != '\'') {
      const bool substitutes = c == '`' || line.substr(i).starts_with("$(");
      const bool acts = quote == 0 && ACTING.find(c) != std::string_view::npos;
      if (substitutes || acts) return true;
      if (c == '\\') ++i;
    }
    const bool begins_word = Q_WHITE_SPACE.find(previous) != std::string_view::npos;
    if (quote == 0 && c == '#' && begins_word) return false;
    if (c == quote)
      quote = 0;
    else if (quote == 0 && (c == '"' || c == '\''))
      quote = c;
    previous = c;
  }
  return false;
}

}  // namespace

Q_batch_shown Q_show_batch(std::string_view file_content) {
  std::string text(file_content);
  std::ranges::replace_if(
      text, [](char byte) { return Q_LINE_ENDS.find(byte) != std::string_view::npos; }, '\n');
  if (!text.empty() && text.back() == '\n') text.pop_back();
  if (Q_is_utf8(text)) return {std::move(text), {}};
  Q_batch_shown shown;
  const std::vector<std::string> lines = Q_batch_lines(text);
  for (const std::string& line : lines) {
    const std::string as_shown = Q_is_utf8(line) ? line : shown_line(line);
    if (as_shown != line) shown.bytes.emplace(as_shown, line);
    shown.text.append(as_shown).append("\n");
  }
  shown.text.pop_back();
  // Where the two look alike, a line that is UTF-8 must not be turned into one that is not.
  for (const std::string& line : lines) shown.bytes.erase(line);
  return shown;
}

std::string Q_batch_content(const std::string& pane_text, const Q_batch_shown& shown) {
  std::string content;
  for (const std::string& line : Q_batch_lines(pane_text)) {
    const auto found = shown.bytes.find(line);
    content.append(found == shown.bytes.end() ? line : found->second).append("\n");
  }
  return content;
}

std::vector<std::string> Q_batch_lines(const std::string& pane_text) {
  std::vector<std::string> lines;
  std::size_t start = 0;
  for (std::size_t end = pane_text.find('\n'); end != std::string::npos;
       end = pane_text.find('\n', start)) {
    lines.push_back(pane_text.substr(start, end - start));
    start = end + 1;
  }
  lines.push_back(pane_text.substr(start));
  return lines;
}

std::optional<std::size_t> Q_batch_long_line(const std::vector<std::string>& lines) {
  for (std::size_t i = 0; i < lines.size(); ++i)
    if (lines[i].size() > Q_STRING_MAX) return i + 1;
  return std::nullopt;
}

std::string Q_batch_shell_lines(const std::vector<std::string>& lines) {
  std::string named;
  for (std::size_t i = 0; i < lines.size(); ++i)
    if (runs_in_shell(lines[i]))
      named.append(Q_format("\n%zu: ", i + 1).str()).append(Q_markup_escape(lines[i]));
  return named;
}

std::string Q_batch_overwrite_question(const std::optional<std::string>& known,
                                       const std::optional<std::string>& on_disk,
                                       const std::string& wanted) {
  if (on_disk == wanted) return "";
  if (!on_disk || on_disk != known)
    return Q_format(
               "The file '%s' is not the one that was loaded or saved last: another program has "
               "changed it, or the folder has changed. Do you want to overwrite it?",
               KVO_BATCH_FILE)
        .str();
  if (on_disk->find('\xFF') != std::string::npos)
    return Q_format(
               "The file '%s' has bytes of value 255, which would become line ends. Do you want to "
               "overwrite it?",
               KVO_BATCH_FILE)
        .str();
  return "";
}
