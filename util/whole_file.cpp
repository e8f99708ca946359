#include "util/whole_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "util/error.h"
#include "util/handles.h"

namespace {

/// The mode for the new file: that of the file it replaces, or else what the umask allows.
mode_t wanted_mode(const char* path) {
  struct stat old {};
  if (stat(path, &old) == 0) return old.st_mode & 07777U;
  const mode_t mask = umask(0);
  umask(mask);
  return 0666U & ~mask;
}

/// For a writable file in a folder where no new file can be made. Space is allocated first, so that
/// a full disk is noticed before anything is lost.
bool write_in_place(const char* path, std::string_view text) {
  // Does not wait for the reader of a named pipe, which fails below: it has no space to allocate.
  const Q_fd fd(open(path, O_WRONLY | O_CLOEXEC | O_NONBLOCK));
  struct stat old {};
  if (!fd || fstat(fd.get(), &old) != 0) return false;
  const auto size = static_cast<off_t>(text.size());
  const int error = size == 0 ? 0 : posix_fallocate(fd.get(), 0, size);
  if (error != 0) {
    [[maybe_unused]] const int ignored = ftruncate(fd.get(), old.st_size);
    errno = error;
    return false;
  }
  return Q_write_all(fd.get(), text) && ftruncate(fd.get(), size) == 0 && fsync(fd.get()) == 0;
}

bool disk_failed(int error) {
  return error == ENOSPC || error == EDQUOT || error == EFBIG || error == EIO;
}

/// The file that a path leads to, and whether it exists yet.
struct Target {
  std::string path;
  bool exists;
};

constexpr int MOST_LINKS = 40;  // in a row, as the kernel has it

Target target_of(const char* path) {
  const Q_heap_memory<char> resolved(realpath(path, nullptr));
  if (resolved != nullptr) return {resolved.get(), true};
  // A link to a file that does not exist yet: the file is created where the link points.
  namespace fs = std::filesystem;
  fs::path target = path;
  std::error_code error;
  for (int links = 0; links < MOST_LINKS && fs::is_symlink(target, error); ++links)
    target = target.parent_path() / fs::read_symlink(target, error);
  return {target.string(), false};
}

enum class Outcome { placed, no_new_file, failed };

using Take_name = bool (*)(const char* temporary, const char* path);

bool take_any_name(const char* temporary, const char* path) {
  return rename(temporary, path) == 0;
}

bool take_free_name(const char* temporary, const char* path) {
  if (renameat2(AT_FDCWD, temporary, AT_FDCWD, path, RENAME_NOREPLACE) == 0) return true;
  // Some file systems cannot do that; they have hard links.
  if ((errno != EINVAL && errno != ENOSYS) || link(temporary, path) != 0) return false;
  unlink(temporary);
  return true;
}

Outcome place(const Target& target, const std::function<bool(int fd)>& write, Take_name take_name) {
  // A read-only file is refused even where its folder would allow it to be replaced.
  if (target.exists && access(target.path.c_str(), W_OK) != 0) return Outcome::failed;
  std::string temporary = target.path + ".XXXXXX";
  const Q_fd fd(mkostemp(temporary.data(), O_CLOEXEC));
  if (!fd) return Outcome::no_new_file;
  const bool done = write(fd.get()) && fchmod(fd.get(), wanted_mode(target.path.c_str())) == 0 &&
                    fsync(fd.get()) == 0 && take_name(temporary.c_str(), target.path.c_str());
  if (done) return Outcome::placed;
  const int error = errno;
  unlink(temporary.c_str());
  errno = error;
  return Outcome::failed;
}

}  // namespace

bool Q_write_all(int fd, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = write(fd, text.data(), text.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return false;
    text.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

bool Q_replace_file(const char* path, const std::function<bool(int fd)>& write) {
  return place(target_of(path), write, take_any_name) == Outcome::placed;
}

bool Q_create_whole(const char* path, std::string_view text) {
  const auto write = [text](int fd) { return Q_write_all(fd, text); };
  return place({path, false}, write, take_free_name) == Outcome::placed;
}

bool Q_write_whole(const char* path, std::string_view text) {
  const Target target = target_of(path);
  const auto write = [text](int fd) { return Q_write_all(fd, text); };
  const Outcome outcome = place(target, write, take_any_name);
  if (outcome == Outcome::no_new_file && target.exists && !disk_failed(errno))
    return write_in_place(target.path.c_str(), text);
  return outcome == Outcome::placed;
}

bool Q_can_write_whole(const char* path) {
  const auto [target, exists] = target_of(path);
  std::error_code ignored;
  if (exists)
    return std::filesystem::is_regular_file(target, ignored) && access(target.c_str(), W_OK) == 0;
  const std::filesystem::path folder = std::filesystem::path(target).parent_path();
  return access(folder.empty() ? "." : folder.c_str(), W_OK | X_OK) == 0;
}

bool Q_write_whole_or_die(const char* path, std::string_view text) {
  if (Q_write_whole(path, text)) return true;
  if (!disk_failed(errno)) Q_error("File '%s' not writable", path);
  return false;
}
