#include "shell/batch.h"

#include <gtk/gtk.h>

#include <filesystem>

#include "dialogs/canned.h"
#include "dialogs/message.h"
#include "shell/batch_text.h"
#include "shell/busy.h"
#include "shell/command_runner.h"
#include "shell/console.h"
#include "util/handles.h"
#include "util/q_string.h"
#include "util/read_file.h"
#include "util/whole_file.h"
#include "workspace/files/file_names.h"

namespace {

std::string pane_text() {
  GtkTextBuffer* buffer = Qw_v_OutputBuffer[Q_BATCH_PANE];
  GtkTextIter start;
  GtkTextIter end;
  gtk_text_buffer_get_bounds(buffer, &start, &end);
  const Q_g_memory<char> text(gtk_text_buffer_get_text(buffer, &start, &end, FALSE));
  return text.get();
}

/// The file as it was when it was loaded or saved last.
struct Batch_file {
  std::optional<std::string> content;  ///< nothing when there was none
  Q_batch_shown shown;
};
std::optional<Batch_file> known_file;

/// Whether the user lets the file become the content, asked only when something would be lost.
bool may_overwrite(const std::string& content) {
  std::error_code ignored;
  if (!known_file || !std::filesystem::is_regular_file(KVO_BATCH_FILE, ignored)) return true;
  const std::string question =
      Q_batch_overwrite_question(known_file->content, Q_read_text(KVO_BATCH_FILE), content);
  return question.empty() || Q_input_boolean(question.c_str(), false);
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

void kvo3_batch_print() {
  std::optional<std::string> content = Q_read_text(KVO_BATCH_FILE);
  Q_batch_shown shown = Q_show_batch(content.value_or(""));
  const std::string text = shown.text;
  known_file = {std::move(content), std::move(shown)};
  gtk_text_buffer_set_text(Qw_v_OutputBuffer[Q_BATCH_PANE], text.c_str(), -1);
  if (const auto number = Q_batch_long_line(Q_batch_lines(text)))
    Q_print_warning(0,
                    "Line %zu of '%s' is longer than %zu characters and can be neither run nor "
                    "saved. Please shorten it.\n",
                    *number, KVO_BATCH_FILE, Q_STRING_MAX);
}

void kvo3_batch_save() {
  const std::string text = pane_text();
  if (!check_lines(Q_batch_lines(text))) return;
  std::string content = Q_batch_content(text, known_file ? known_file->shown : Q_batch_shown());
  if (!may_overwrite(content)) return;
  if (!Q_write_whole(KVO_BATCH_FILE, content)) {
    Q_input_warning("Batch content could not be saved!'");
    return;
  }
  if (known_file) known_file->content = std::move(content);
  Q_input_warning("Batch content has been saved to\nthe text file '%s'", KVO_BATCH_FILE);
}

void kvo3_batch_run() {
  if (Q_input_block::exists()) return;
  const std::vector<std::string> lines = Q_batch_lines(pane_text());
  if (!check_lines(lines)) return;
  const Q_input_block block;
  if (const std::string named = Q_batch_shell_lines(lines); !named.empty())
    Q_print(Q_RED, 0,
            "WARNING: Besides Quorvane, the system's shell runs these lines of the batch:%s\n\n",
            named.c_str());
  for (const std::string& line : lines)
    if (!kvo3_exec_core(false, "%s", line.c_str())) {
      Q_print_warning(0, "A command was cancelled, so the batch has been stopped.\n");
      return;
    }
}
