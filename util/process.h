#pragma once

// Starting of other programs through the system shell.

#include <optional>
#include <string>
#include <string_view>

#include "util/handles.h"
#include "util/q_string.h"

/// The characters that act inside the double quotes of a shell command.
inline constexpr std::string_view Q_ACTS_IN_QUOTES = "\"$`\\";
/// The text in double quotes for the shell, with those characters escaped.
std::string Q_shell_quoted(std::string_view text);

/// Starts the formatted command through the shell and returns a stream that reads its standard
/// output; null when that fails. With `wait` false " &" is appended, so that the shell starts it in
/// the background and ends at once. Closing the stream waits for the shell, not for such a command.
[[gnu::format(printf, 2, 3)]] Q_pipe Q_openr_exec(bool wait, const char* format, ...);

/// Runs the formatted command through the shell without reading its output: to its end with `wait`
/// true, in the background with `wait` false. Its exit status is not looked at.
[[gnu::format(printf, 2, 3)]] void Q_execute_r(bool wait, const char* format, ...);

/// Runs the formatted command through the shell to its end, with the program's own output streams.
/// How it ended, as wait() reports it; nothing when not even a shell could be started.
[[gnu::format(printf, 1, 2)]] std::optional<int> Q_execute_status(const char* format, ...);

/// A background command (started as by Q_execute_r with `wait` false) whose end is noticed. The
/// command carries on if this object is destroyed first.
class Q_watched_command {
 public:
  /// Starts the command line, which may be longer than a Q string.
  explicit Q_watched_command(const std::string& command_line);

  /// Becomes readable when the command and all that it started are gone.
  [[nodiscard]] int fd() const { return report_.get(); }
  /// Whether the command and all that it started are gone. Does not wait.
  bool ended();
  /// How it ended, as wait() reports it, once ended() is true: the shell's own status when the
  /// shell failed (a syntax error), else that of the first process of the command to end. Nothing
  /// when it is not known.
  [[nodiscard]] std::optional<int> wait_status() const { return wait_status_; }

 private:
  Q_fd report_;
  bool ended_ = false;
  std::optional<int> wait_status_;
};

/// The shell's complaint about a command line that it cannot parse, with line ends; empty when it
/// can. Nothing is run.
std::string Q_shell_complaint(const std::string& command_line);

/// "exit status 127" or "signal 9 (Killed)" of a wait() status.
std::string Q_wait_status_text(int wait_status);
