#include "companions/common/text_file.h"

#include <fcntl.h>
#include <glib.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>

#include "companions/common/error.h"
#include "util/handles.h"
#include "util/q_string.h"

namespace {

constexpr std::string_view white_space = " \t\n\v\f\r";
constexpr std::size_t max_text = std::size_t(64) << 20;
constexpr std::size_t max_any = std::size_t(1) << 30;

[[noreturn]] void refuse(const std::string& path, const std::string& reason) {
  throw Refusal("'" + path + "' " + reason + ".");
}

std::string read_bytes(const std::string& path, std::size_t limit) {
  // Not blocking, so that a named pipe is refused below instead of waited for.
  const Q_fd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  struct stat status {};
  if (!fd || fstat(fd.get(), &status) != 0)
    refuse(path, std::string("cannot be opened: ") + std::strerror(errno));
  if (!S_ISREG(status.st_mode)) refuse(path, "is not a file");
  std::string content;
  for (std::size_t length = 0;;) {
    if (length > limit) refuse(path, "is too large");
    content.resize(length + (std::size_t(1) << 16));
    const ssize_t got = read(fd.get(), content.data() + length, content.size() - length);
    if (got < 0) refuse(path, std::string("cannot be read: ") + std::strerror(errno));
    length += std::size_t(got);
    content.resize(length);
    if (got == 0) return content;
  }
}

}  // namespace

std::string read_text(const std::string& path) {
  std::string content = read_bytes(path, max_text);
  if (content.find_first_of(std::string_view("\0\xFF", 2)) != std::string::npos)
    refuse(path, "is not a text file");
  if (content.starts_with("\xEF\xBB\xBF"))
    refuse(path, "begins with a byte order mark; please save it as plain text without one");
  for (const TextLine& line : filled_lines(content))
    if (line.text.size() > Q_STRING_MAX)
      throw Refusal(at_line(path, line.number) + "is longer than " + std::to_string(Q_STRING_MAX) +
                    " bytes.");
  return content;
}

std::vector<TextLine> filled_lines(std::string_view text) {
  std::vector<TextLine> lines;
  for (std::size_t number = 1; !text.empty(); ++number) {
    const std::size_t end = std::min(text.find_first_of("\n\r"), text.size());
    std::string_view line = text.substr(0, end);
    line = line.substr(0, line.find_last_not_of(white_space) + 1);
    if (!line.empty()) lines.push_back({line, number});
    const std::size_t after = text.substr(end).starts_with("\r\n") ? end + 2 : end + 1;
    text.remove_prefix(std::min(after, text.size()));
  }
  return lines;
}

std::string_view trimmed(std::string_view text) {
  const std::size_t first = text.find_first_not_of(white_space);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(white_space) - first + 1);
}

std::vector<std::string_view> words(std::string_view text) {
  std::vector<std::string_view> found;
  for (text = trimmed(text); !text.empty(); text = trimmed(text)) {
    const std::size_t end = std::min(text.find_first_of(white_space), text.size());
    found.push_back(text.substr(0, end));
    text.remove_prefix(end);
  }
  return found;
}

std::optional<double> number_of(std::string_view text) {
  if (text.starts_with('+') && !text.starts_with("+-")) text.remove_prefix(1);
  double number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size() || !std::isfinite(number))
    return std::nullopt;
  return number;
}

std::string text_of(double number) {
  char buffer[64];
  const auto [end, error] = std::to_chars(buffer, buffer + sizeof buffer, number);
  return {buffer, end};
}

std::string checksum(std::string_view bytes) {
  const Q_g_memory<char> text(g_compute_checksum_for_data(
      G_CHECKSUM_SHA256, reinterpret_cast<const guchar*>(bytes.data()), bytes.size()));
  return text.get();
}

std::string file_checksum(const std::string& path) {
  return checksum(read_bytes(path, max_any));
}

std::string at_line(const std::string& path, std::size_t line) {
  return "'" + path + "', line " + std::to_string(line) + ": ";
}
