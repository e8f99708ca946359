#include "companions/kvo_parse/supervise.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <string_view>

#include "companions/common/cancel.h"
#include "companions/common/error.h"
#include "companions/common/outputs.h"
#include "companions/common/progress.h"
#include "util/handles.h"
#include "util/process.h"

namespace {

// How long a child that was told to cancel may take before it is killed.
constexpr timespec patience{10, 0};

sigset_t cancel_signals() {
  sigset_t set;
  sigemptyset(&set);
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) sigaddset(&set, signal);
  return set;
}

struct Child {
  pid_t pid = -1;
  Q_fd output;
};

/// Starts the child. The cancel signals are blocked in this process, and must be free in the child.
Child start(const std::string& program, const std::vector<std::string>& arguments,
            const sigset_t& free_signals) {
  std::vector<char*> words{const_cast<char*>(program.c_str())};
  for (const std::string& argument : arguments)
    words.push_back(const_cast<char*>(argument.c_str()));
  words.push_back(nullptr);
  int output[2], failure[2];
  if (pipe2(output, O_CLOEXEC) != 0)
    throw Refusal("The engine cannot be started: " + std::string(std::strerror(errno)) + ".");
  Child child{-1, Q_fd(output[0])};
  const Q_fd output_writer(output[1]);
  if (pipe2(failure, O_CLOEXEC) != 0)
    throw Refusal("The engine cannot be started: " + std::string(std::strerror(errno)) + ".");
  const Q_fd failure_reader(failure[0]);
  Q_fd failure_writer(failure[1]);
  const pid_t parent = getpid();
  child.pid = fork();
  if (child.pid == 0) {
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    // The parent may have gone before the request was made.
    if (getppid() != parent) _exit(1);
    sigprocmask(SIG_SETMASK, &free_signals, nullptr);
    dup2(output_writer.get(), STDOUT_FILENO);
    execv(program.c_str(), words.data());
    const int reason = errno;
    [[maybe_unused]] const ssize_t ignored = write(failure_writer.get(), &reason, sizeof reason);
    _exit(127);
  }
  failure_writer.reset();
  int reason = errno;
  if (child.pid < 0 || read(failure_reader.get(), &reason, sizeof reason) > 0) {
    if (child.pid > 0) waitpid(child.pid, nullptr, 0);
    throw Refusal("The engine '" + program + "' cannot be started: " + std::strerror(reason) + ".");
  }
  return child;
}

bool is_closing(std::string_view line) {
  return line.starts_with('d') || line.starts_with('w') || line.starts_with("WARNING");
}

/// The lines of the child: all but the closing one are passed on as they come.
struct Report {
  std::string partial, closing;

  void take(std::string_view bytes) {
    partial += bytes;
    for (std::size_t end; (end = partial.find('\n')) != std::string::npos;) {
      const std::string line = partial.substr(0, end);
      partial.erase(0, end + 1);
      if (!closing.empty()) continue;
      if (is_closing(line))
        closing = line;
      else
        write_line(line);
    }
  }
};

/// Passes the child's lines on until it has closed its output.
Report follow(const Child& child, const sigset_t& free_signals) {
  Report report;
  bool told = false;
  std::array<char, 65536> bytes{};
  for (;;) {
    if (cancel_requested() && !told) {
      kill(child.pid, SIGTERM);
      told = true;
    }
    pollfd state{child.output.get(), POLLIN, 0};
    // The signals are let in only here, so that none can come between the question and the wait.
    const int ready = ppoll(&state, 1, told ? &patience : nullptr, &free_signals);
    if (ready < 0) continue;
    if (ready == 0) kill(child.pid, SIGKILL);
    const ssize_t got = read(child.output.get(), bytes.data(), bytes.size());
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return report;
    report.take({bytes.data(), std::size_t(got)});
  }
}

}  // namespace

bool supervise(const std::string& program, const std::vector<std::string>& arguments) {
  const sigset_t blocked = cancel_signals();
  sigset_t free_signals;
  sigprocmask(SIG_BLOCK, &blocked, &free_signals);
  const Child child = start(program, arguments, free_signals);
  const Report report = follow(child, free_signals);
  int status = 0;
  while (waitpid(child.pid, &status, 0) < 0 && errno == EINTR) continue;

  const bool went_well = status == 0 && report.closing.starts_with('d');
  if (went_well || (!report.closing.empty() && !report.closing.starts_with('d'))) {
    write_line(report.closing);
    return went_well;
  }
  // Killed after its outputs were complete, the command has happened.
  if (recover_folder() == Leftovers::completed) {
    say_done();
    return true;
  }
  if (cancel_requested())
    say_cancelled();
  else
    say_warning("The engine ended before it finished: " + Q_wait_status_text(status) + ".");
  return false;
}
