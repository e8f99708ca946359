#include "shell/run_output.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>

#include "shell/random_id.h"
#include "util/error.h"
#include "util/text.h"

namespace {

constexpr std::string_view PREFIX = "kvo_";
constexpr std::string_view SUFFIX = ".tmp";

/// Whether the file is locked now, or this file system has no locks.
bool lock(const Q_fd& fd) {
  return flock(fd.get(), LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK;
}

bool is_linked(const Q_fd& fd) {
  struct stat status {};
  return fstat(fd.get(), &status) == 0 && status.st_nlink == 1;
}

bool is_output_name(const std::string& name) {
  const std::string_view id =
      std::string_view(name).substr(PREFIX.size(), name.size() - PREFIX.size() - SUFFIX.size());
  return !id.empty() && id.find_first_not_of("0123456789") == std::string_view::npos;
}

/// Whether the open file was left behind by its owner.
bool is_dead(const Q_fd& fd) {
  struct stat status {};
  return fstat(fd.get(), &status) == 0 && S_ISREG(status.st_mode) && status.st_nlink == 1 &&
         status.st_uid == geteuid() && flock(fd.get(), LOCK_EX | LOCK_NB) == 0;
}

}  // namespace

Q_run_output::Q_run_output() {
  // Also tried again when another program removed the new file as a dead one before it was locked.
  do {
    path_ = Q_format("kvo_%i.tmp", Q_runif_int());
    fd_ = Q_fd(open(path_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!fd_ && errno != EEXIST) Q_error("File '%s' not writable", path_.c_str());
  } while (!fd_ || !lock(fd_) || !is_linked(fd_));
}

Q_run_output::~Q_run_output() {
  // While it is still locked.
  unlink(path_.c_str());
}

Q_file Q_run_output::take_reader() const {
  Q_file reader(fdopen(fcntl(fd_.get(), F_DUPFD_CLOEXEC, 0), "r"));
  if (reader == nullptr) Q_error("File '%s' not found", path_.c_str());
  return reader;
}

void Q_remove_dead_outputs() {
  Q_string_list names;
  Q_ls(names, ".", PREFIX.data(), SUFFIX.data());
  for (const std::string& name : names) {
    if (!is_output_name(name)) continue;
    const Q_fd fd(open(name.c_str(), O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (fd && is_dead(fd)) unlink(name.c_str());
  }
}
