#include "shell/companion_run.h"

#include <sys/wait.h>

#include "shell/console.h"
#include "shell/follower.h"
#include "shell/random_id.h"
#include "util/files.h"
#include "util/process.h"
#include "util/text.h"

namespace {

constexpr const char* NAME = "KVO";

/// Why a program is gone that has not said so itself.
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
    // Asked before the read: what the program wrote before its end is then sure to be read.
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
  const int id = Q_runif_int();
  const Q_string path = Q_format("kvo_%i.tmp", id);
  Q_openw_or_die("%s", path.c_str());
  Q_watched_command command(Q_shell_quoted(Qs_ProgramDir.str() + "/" + program) + " " + arguments +
                            " > " + path.str());
  std::optional<std::string> gone;
  {
    Q_follower output(Q_openr_or_die("%s", path.c_str()), path.c_str());
    gone = follow(output, command, take_line);
  }
  Q_rm("%s", path.c_str());
  Q_set_busy(NAME, false);
  return gone;
}
