#include "companions/kvo_parse/supervise.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <ctime>
#include <optional>
#include <string_view>

#include "engine/base/cancel.h"
#include "engine/base/outputs.h"
#include "engine/base/progress.h"
#include "engine/base/refusal.h"
#include "util/handles.h"
#include "util/process.h"

namespace kvo::parse {

namespace {

/// How long a child may take to end after it was told to cancel or has closed its output.
constexpr std::chrono::seconds patience(10);

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
    // The parent may have died before this request.
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

/// The deadline by which the child must have ended, once there is one; after it the child is
/// killed.
class Deadline {
 public:
  void set() { end_ = Clock::now() + patience; }
  [[nodiscard]] bool is_set() const { return end_.has_value(); }
  [[nodiscard]] bool is_over() const { return end_ && Clock::now() >= *end_; }
  /// For ppoll(): null while there is none.
  const timespec* left() {
    if (!end_) return nullptr;
    const auto time = std::max(*end_ - Clock::now(), Clock::duration::zero());
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(time);
    left_ = {seconds.count(), std::chrono::nanoseconds(time - seconds).count()};
    return &left_;
  }

 private:
  using Clock = std::chrono::steady_clock;
  std::optional<Clock::time_point> end_;
  timespec left_{};
};

/// Passes the child's lines on until it has closed its output. The grace period of a cancelled
/// child does not restart with each line it writes.
Report follow(const Child& child, const sigset_t& free_signals) {
  Report report;
  Deadline deadline;
  std::array<char, 65536> bytes{};
  for (;;) {
    if (cancel_requested() && !deadline.is_set()) {
      kill(child.pid, SIGTERM);
      deadline.set();
    }
    pollfd state{child.output.get(), POLLIN, 0};
    // Signals are unblocked only here, so that none is missed between the check and the wait.
    const int ready = ppoll(&state, 1, deadline.left(), &free_signals);
    if (deadline.is_over()) {
      kill(child.pid, SIGKILL);
      return report;
    }
    if (ready <= 0) continue;
    const ssize_t got = read(child.output.get(), bytes.data(), bytes.size());
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return report;
    report.take({bytes.data(), std::size_t(got)});
  }
}

/// The wait() status of a child that has closed its output and so has nothing more to do.
int wait_for_end(pid_t child) {
  constexpr timespec pause{0, 1'000'000};
  Deadline deadline;
  deadline.set();
  int status = 0;
  while (waitpid(child, &status, WNOHANG) == 0) {
    if (deadline.is_over()) kill(child, SIGKILL);
    nanosleep(&pause, nullptr);
  }
  return status;
}

}  // namespace

bool supervise(const std::string& program, const std::vector<std::string>& arguments) {
  const sigset_t blocked = cancel_signals();
  sigset_t free_signals;
  sigprocmask(SIG_BLOCK, &blocked, &free_signals);
  const Child child = start(program, arguments, free_signals);
  const Report report = follow(child, free_signals);
  const int status = wait_for_end(child.pid);
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

}  // namespace kvo::parse
