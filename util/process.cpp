#include "util/process.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>

namespace {

/// Where the watcher keeps the pipe to the program.
constexpr int WATCHER_REPORT_FD = 3;

/// Waits until nothing is left of the command; returns the status described in the header. This
/// process is the subreaper of its descendants, so it inherits whatever the shell leaves in the
/// background and can wait for processes that it did not start itself.
int wait_for_all(pid_t shell) {
  int result = -1;
  bool known = false;
  int status = 0;
  while (const pid_t pid = waitpid(-1, &status, 0)) {
    if (pid < 0) break;
    const bool shell_succeeded = pid == shell && status == 0;
    if (!known && !shell_succeeded) {
      result = status;
      known = true;
    }
  }
  return result;
}

/// The watcher process: runs the shell and reports when the shell and all its descendants have
/// ended. It calls only what is safe between fork and exec.
[[noreturn]] void watch(const char* command_line, int report) {
  // The watcher outlives a killed program, so it must not keep the program's connections open,
  // above all not the one to the display.
  if (dup2(report, WATCHER_REPORT_FD) < 0) _exit(1);
  close_range(WATCHER_REPORT_FD + 1, ~0U, 0);
  fcntl(WATCHER_REPORT_FD, F_SETFD, FD_CLOEXEC);
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  const pid_t shell = fork();
  if (shell == 0) {
    execl("/bin/sh", "sh", "-c", command_line, static_cast<char*>(nullptr));
    _exit(127);
  }
  if (shell < 0) _exit(1);
  const int status = wait_for_all(shell);
  [[maybe_unused]] const ssize_t ignored = write(WATCHER_REPORT_FD, &status, sizeof status);
  _exit(0);
}

}  // namespace

std::string Q_shell_quoted(std::string_view text) {
  std::string quoted = "\"";
  for (const char character : text) {
    if (Q_ACTS_IN_QUOTES.find(character) != std::string_view::npos) quoted += '\\';
    quoted += character;
  }
  return quoted + '"';
}

Q_pipe Q_openr_exec(bool wait, const char* format, ...) {
  Q_FORMAT_ARGUMENTS(command, format);
  const std::string line = command.str() + (wait ? "" : " &");
  return Q_pipe(popen(line.c_str(), "r"));
}

void Q_execute_r(bool wait, const char* format, ...) {
  Q_FORMAT_ARGUMENTS(command, format);
  const Q_pipe closed_at_once = Q_openr_exec(wait, "%s", command.c_str());
}

std::optional<int> Q_execute_status(const char* format, ...) {
  Q_FORMAT_ARGUMENTS(command, format);
  const int status = std::system(command.c_str());
  return status == -1 ? std::nullopt : std::optional(status);
}

Q_watched_command::Q_watched_command(const std::string& command_line) {
  const std::string line = command_line + " &";
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return;
  report_ = Q_fd(ends[0]);
  const Q_fd writer(ends[1]);
  // Forked twice, so that the watcher does not become a zombie when it ends.
  const pid_t starter = fork();
  if (starter == 0) {
    const pid_t watcher = fork();
    if (watcher == 0) watch(line.c_str(), writer.get());
    _exit(0);
  }
  if (starter > 0) waitpid(starter, nullptr, 0);
}

bool Q_watched_command::ended() {
  if (ended_) return true;
  pollfd state{report_.get(), POLLIN, 0};
  if (report_ && poll(&state, 1, 0) == 0) return false;
  int status = 0;
  if (report_ && read(report_.get(), &status, sizeof status) == sizeof status && status >= 0)
    wait_status_ = status;
  return ended_ = true;
}

std::string Q_shell_complaint(const std::string& command_line) {
  const std::string check = "/bin/sh -n -c " + Q_shell_quoted(command_line) + " 2>&1";
  const Q_pipe complaint(popen(check.c_str(), "re"));
  std::string text;
  if (complaint == nullptr) return text;
  for (int byte = std::fgetc(complaint.get()); byte != EOF; byte = std::fgetc(complaint.get()))
    text += static_cast<char>(byte);
  return text;
}

std::string Q_wait_status_text(int wait_status) {
  if (WIFSIGNALED(wait_status)) {
    const int signal = WTERMSIG(wait_status);
    return "signal " + std::to_string(signal) + " (" + strsignal(signal) + ")";
  }
  return "exit status " + std::to_string(WEXITSTATUS(wait_status));
}
