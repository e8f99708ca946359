#include "shell/follower.h"

#include <fcntl.h>
#include <glib-unix.h>
#include <sys/inotify.h>

#include <array>

#include "util/lines.h"

namespace {

constexpr guint LONGEST_WAIT = 10;  // ms
constexpr std::size_t BLOCK = 65536;

gboolean on_readable(gint fd, GIOCondition /*condition*/, gpointer drain) {
  if (drain != nullptr) {
    std::array<char, 4096> events{};
    while (read(fd, events.data(), events.size()) > 0) continue;
  }
  return G_SOURCE_CONTINUE;
}

gboolean on_time(gpointer /*data*/) {
  return G_SOURCE_CONTINUE;
}

}  // namespace

Q_follower::Q_follower(Q_file file, const char* path)
    : file_(std::move(file)), growth_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
  fcntl(fileno(file_.get()), F_SETFD, FD_CLOEXEC);
  if (growth_ && inotify_add_watch(growth_.get(), path, IN_MODIFY) < 0) growth_.reset();
}

std::string_view Q_follower::rest() const {
  return std::string_view(data_).substr(position_);
}

bool Q_follower::has_line() const {
  return Q_first_line(rest()).complete;
}

void Q_follower::read_more() {
  data_.erase(0, position_);
  position_ = 0;
  std::array<char, BLOCK> block;  // NOLINT(cppcoreguidelines-pro-type-member-init)
  const ssize_t length = read(fileno(file_.get()), block.data(), block.size());
  if (length <= 0) {
    if (!resting_since_) resting_since_ = g_get_monotonic_time();
    return;
  }
  data_.append(block.data(), static_cast<std::size_t>(length));
  resting_since_.reset();
}

std::optional<std::string> Q_follower::next_line(bool final) {
  Q_line line = Q_first_line(rest());
  if (!line.complete) {
    read_more();
    line = Q_first_line(rest());
  }
  const bool resting =
      final || (resting_since_ && g_get_monotonic_time() - *resting_since_ >= LONGEST_WAIT * 1000);
  if (!line.complete && (!resting || line.text.empty())) return std::nullopt;
  position_ += line.consumed;
  return std::string(line.text);
}

void Q_follower::wait(const Q_watched_command& writer) const {
  const Q_source time(g_timeout_add(LONGEST_WAIT, on_time, nullptr));
  Q_source growth;
  if (growth_)
    growth = Q_source(g_unix_fd_add(growth_.get(), G_IO_IN, on_readable, GINT_TO_POINTER(1)));
  Q_source end;
  if (writer.fd() >= 0)
    end = Q_source(g_unix_fd_add(writer.fd(), static_cast<GIOCondition>(G_IO_IN | G_IO_HUP),
                                 on_readable, nullptr));
  // Adding and removing sources also wakes the loop, without anything being handled.
  while (g_main_context_iteration(nullptr, TRUE) == FALSE) continue;
}
