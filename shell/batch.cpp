#include "shell/batch.h"

#include <gtk/gtk.h>

#include <algorithm>

#include "dialogs/message.h"
#include "shell/busy.h"
#include "shell/command_runner.h"
#include "shell/console.h"
#include "util/handles.h"
#include "util/lines.h"
#include "util/q_string.h"
#include "util/text.h"
#include "util/whole_file.h"

namespace {

constexpr const char* BATCH_FILE = "kvo_batch.txt";

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

std::string Q_batch_text(std::string_view file_content) {
  std::string text(file_content);
  std::replace_if(
      text.begin(), text.end(), [](char byte) { return byte == '\r' || byte == '\xFF'; }, '\n');
  if (!text.empty() && text.back() == '\n') text.pop_back();
  const Q_g_memory<char> valid(g_utf8_make_valid(text.data(), static_cast<gssize>(text.size())));
  return valid.get();
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
  const std::string text = Q_batch_text(Q_read_file(BATCH_FILE).value_or(""));
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
  if (!Q_write_whole(BATCH_FILE, text + "\n")) {
    Q_input_warning("Batch content could not be saved!'");
    return;
  }
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
