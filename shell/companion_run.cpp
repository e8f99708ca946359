#include "shell/companion_run.h"

#include <sys/wait.h>

#include "shell/console.h"
#include "shell/follower.h"
#include "shell/run_output.h"
#include "util/files.h"
#include "util/lines.h"
#include "util/process.h"
#include "util/text.h"

namespace {

constexpr const char* NAME = "KVO";

/// Why a program is gone that did not say so itself.
std::string reason(std::optional<int> wait_status) {
  if (!wait_status) return "for an unknown reason";
  std::string text = Q_wait_status_text(*wait_status);
  const int code = WIFEXITED(*wait_status) ? WEXITSTATUS(*wait_status) : 0;
  if (code == 126) text += ", the program could not be started";
  if (code == 127) text += ", the program was not found";
  return text;
}

std::optional<std::string> follow(Q_follower& output, Q_watched_command& program,
                                  const Q_line_taker& take_line) {
  while (!Q_console_gone()) {
    // Checked before reading, so that everything the program wrote before it ended is read.
    const bool ended = program.ended();
    const std::optional<std::string> line = output.next_line(ended);
    if (line) {
      if (take_line(*line, output.has_line())) return std::nullopt;
    } else if (ended) {
      return reason(program.wait_status());
    } else {
      output.wait(program);
      Q_process_events();
    }
  }
  return "the window has been closed";
}

/// Passes on the shell's complaint when the shell itself failed, not the program.
void report_complaint(const std::string& command_line, std::optional<int> wait_status,
                      const Q_line_taker& take_line) {
  if (!wait_status || *wait_status == 0 || !WIFEXITED(*wait_status)) return;
  const std::string complaint = Q_markup_escape(Q_shell_complaint(command_line));
  for (const std::string_view line : Q_split_lines(complaint))
    if (!line.empty()) take_line("  " + std::string(line), false);
}

}  // namespace

bool Q_run::exists_ = false;

bool Q_run::allowed(const char* command) const {
  if (!is_only_)
    Q_print_warning(0, "The command '%s' has not been run because another one is running.\n",
                    Q_markup_escape(command).c_str());
  return is_only_;
}

std::optional<std::string> Q_run_companion(const char* program, const std::string& arguments,
                                           const Q_line_taker& take_line) {
  Q_set_busy(NAME, true);
  std::optional<std::string> gone;
  {
    Q_run_output file;
    const std::string line = Q_shell_quoted(Qs_ProgramDir.str() + "/" + program) + " " + arguments +
                             " > " + file.path().str();
    Q_watched_command command(line);
    Q_follower output(file.take_reader(), file.path().c_str());
    gone = follow(output, command, take_line);
    if (gone) report_complaint(line, command.wait_status(), take_line);
  }
  Q_set_busy(NAME, false);
  return gone;
}
