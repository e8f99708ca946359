#include "shell/batch.h"

#include <gtk/gtk.h>

#include <algorithm>
#include <array>
#include <filesystem>

#include "dialogs/canned.h"
#include "dialogs/message.h"
#include "shell/busy.h"
#include "shell/command_runner.h"
#include "shell/console.h"
#include "util/handles.h"
#include "util/lines.h"
#include "util/q_string.h"
#include "util/read_file.h"
#include "util/text.h"
#include "util/whole_file.h"

namespace {

constexpr const char* BATCH_FILE = "kvo_batch.txt";
constexpr const char* ZERO_BYTE = "\u2400";

std::string pane_text() {
  GtkTextBuffer* buffer = Qw_v_OutputBuffer[Q_BATCH_PANE];
  GtkTextIter start;
  GtkTextIter end;
  gtk_text_buffer_get_bounds(buffer, &start, &end);
  const Q_g_memory<char> text(gtk_text_buffer_get_text(buffer, &start, &end, FALSE));
  return text.get();
}

void name_shell_lines(const std::vector<std::string>& lines) {
  std::string named;
  for (std::size_t i = 0; i < lines.size(); ++i)
    if (Q_batch_runs_in_shell(lines[i]))
      named.append(Q_format("\n%zu: ", i + 1).str()).append(Q_markup_escape(lines[i]));
  if (named.empty()) return;
  Q_print(Q_RED, 0,
          "WARNING: Besides Quorvane, the system's shell runs these lines of the batch:%s\n\n",
          named.c_str());
}

bool is_utf8(const std::string& text) {
  return g_utf8_validate(text.data(), static_cast<gssize>(text.size()), nullptr) != FALSE;
}

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
  return is_utf8(without_zeros) ? without_zeros : as_latin;
}

/// The file as it was when it was loaded or saved last.
struct Batch_file {
  std::optional<std::string> content;  ///< nothing when there was none
  Q_batch_shown shown;
};
std::optional<Batch_file> known_file;

/// What the user is asked before the file is written; empty when nothing is lost.
std::string overwrite_question(const std::string& new_content) {
  std::error_code ignored;
  if (!known_file || !std::filesystem::is_regular_file(BATCH_FILE, ignored)) return "";
  const std::optional<std::string> content = Q_read_text(BATCH_FILE);
  if (content == new_content) return "";
  if (!content || content != known_file->content)
    return "The file 'kvo_batch.txt' is not the one that was loaded or saved last: another program "
           "has changed it, or the folder has changed. Do you want to overwrite it?";
  if (content->find('\xFF') != std::string::npos)
    return "The file 'kvo_batch.txt' has bytes of value 255, which would become line ends. Do you "
           "want to overwrite it?";
  return "";
}

/// Whether every line fits a Q string; tells the user which one does not.
bool check_lines(const std::vector<std::string>& lines) {
  const std::optional<std::size_t> number = Q_batch_long_line(lines);
  if (number)
    Q_input_warning(
        "Line %zu of the batch is longer than %zu characters.\nPlease shorten it and "
        "try again.",
        *number, Q_STRING_MAX);
  return !number;
}

}  // namespace

Q_batch_shown Q_show_batch(std::string_view file_content) {
  std::string text(file_content);
  std::replace_if(
      text.begin(), text.end(), [](char byte) { return byte == '\r' || byte == '\xFF'; }, '\n');
  if (!text.empty() && text.back() == '\n') text.pop_back();
  if (is_utf8(text)) return {std::move(text), {}};
  Q_batch_shown shown;
  const std::vector<std::string> lines = Q_batch_lines(text);
  for (const std::string& line : lines) {
    const std::string as_shown = is_utf8(line) ? line : shown_line(line);
    if (as_shown != line) shown.bytes.emplace(as_shown, line);
    shown.text.append(as_shown).append("\n");
  }
  shown.text.pop_back();
  // Where both are shown alike, a line that is UTF-8 is not to become one that is not.
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

bool Q_batch_runs_in_shell(std::string_view line) {
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

void kvo3_batch_print() {
  std::optional<std::string> content = Q_read_text(BATCH_FILE);
  Q_batch_shown shown = Q_show_batch(content.value_or(""));
  const std::string text = shown.text;
  known_file = {std::move(content), std::move(shown)};
  gtk_text_buffer_set_text(Qw_v_OutputBuffer[Q_BATCH_PANE], text.c_str(), -1);
  if (const auto number = Q_batch_long_line(Q_batch_lines(text)))
    Q_print_warning(0,
                    "Line %zu of '%s' is longer than %zu characters and can be neither run nor "
                    "saved. Please shorten it.\n",
                    *number, BATCH_FILE, Q_STRING_MAX);
}

void kvo3_batch_save() {
  const std::string text = pane_text();
  if (!check_lines(Q_batch_lines(text))) return;
  std::string content = Q_batch_content(text, known_file ? known_file->shown : Q_batch_shown());
  const std::string question = overwrite_question(content);
  if (!question.empty() && !Q_input_boolean(question.c_str(), false)) return;
  if (!Q_write_whole(BATCH_FILE, content)) {
    Q_input_warning("Batch content could not be saved!'");
    return;
  }
  if (known_file) known_file->content = std::move(content);
  Q_input_warning("Batch content has been saved to\nthe text file 'kvo_batch.txt'");
}

void kvo3_batch_run() {
  if (Q_input_block::exists()) return;
  const std::vector<std::string> lines = Q_batch_lines(pane_text());
  if (!check_lines(lines)) return;
  const Q_input_block block;
  name_shell_lines(lines);
  for (const std::string& line : lines)
    if (!kvo3_exec_core(false, "%s", line.c_str())) {
      Q_print_warning(0, "A command was cancelled, so the batch has been stopped.\n");
      return;
    }
}
