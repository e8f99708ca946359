#include "util/read_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string_view>
#include <system_error>

#include "util/error.h"

namespace {

constexpr std::string_view BYTE_ORDER_MARK = "\xEF\xBB\xBF";
constexpr std::size_t BLOCK = std::size_t{1} << 16;
constexpr int MIB_BITS = 20;

}  // namespace

ssize_t Q_read_some(int fd, char* to, std::size_t size) {
  for (;;) {
    const ssize_t got = read(fd, to, size);
    if (got >= 0 || errno != EINTR) return got;
  }
}

Q_fd Q_open_regular(const char* path, Q_read_fault& fault) {
  // So as not to wait on a named pipe or take over a terminal, both of which are refused below.
  Q_fd fd(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  struct stat status {};
  if (!fd || fstat(fd.get(), &status) != 0) {
    fault = {errno, std::string("cannot be opened: ") + std::strerror(errno)};
    return {};
  }
  if (S_ISREG(status.st_mode)) return fd;
  fault = {0, "is not a regular file"};
  return {};
}

std::optional<std::string> Q_read_file(const char* path, std::size_t limit, Q_read_fault& fault) {
  const Q_fd fd = Q_open_regular(path, fault);
  if (!fd) return std::nullopt;
  // Read to the end of the file rather than to its size: it may be growing, and files in /proc
  // report no size.
  std::string content;
  for (;;) {
    const std::size_t length = content.size();
    content.resize(length + BLOCK);
    const ssize_t got = Q_read_some(fd.get(), content.data() + length, BLOCK);
    if (got < 0) {
      fault = {0, std::string("cannot be read: ") + std::strerror(errno)};
      return std::nullopt;
    }
    content.resize(length + static_cast<std::size_t>(got));
    if (got == 0) return content;
    if (content.size() > limit) {
      fault = {0, "is larger than " + std::to_string(limit >> MIB_BITS) + " MiB"};
      return std::nullopt;
    }
  }
}

std::optional<std::string> Q_read_text(const char* path, Q_read_fault& fault) {
  std::optional<std::string> content = Q_read_file(path, Q_TEXT_FILE_MAX, fault);
  if (content && content->starts_with(BYTE_ORDER_MARK)) content->erase(0, BYTE_ORDER_MARK.size());
  return content;
}

std::optional<std::string> Q_read_text(const char* path) {
  Q_read_fault fault;
  return Q_read_text(path, fault);
}

void Q_die_of_read_fault(const char* path, const Q_read_fault& fault) {
  if (fault.open_error != 0) Q_error("File '%s' not found", path);
  // The user may be thinking of another working folder.
  std::error_code ignored;
  const std::string file = std::filesystem::absolute(path, ignored).string();
  Q_error("File '%s' %s", file.c_str(), fault.text.c_str());
}

std::string Q_read_text_or_die(const char* path) {
  Q_read_fault fault;
  std::optional<std::string> content = Q_read_text(path, fault);
  if (!content) Q_die_of_read_fault(path, fault);
  return *std::move(content);
}
