#include "engine/base/text_file.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <utility>

#include "util/q_string.h"
#include "util/text.h"

namespace kvo::base {

namespace {

constexpr std::size_t max_any = std::size_t(1) << 30;

std::string content_of(const std::string& path, std::optional<std::string> content,
                       const Q_read_fault& fault) {
  if (!content) throw unread(path, fault);
  return *std::move(content);
}

}  // namespace

Refusal unread(const std::string& path, const Q_read_fault& fault) {
  return Refusal("'" + path + "' " + fault.text + ".");
}

std::string read_text(const std::string& path) {
  Q_read_fault fault;
  std::string content = content_of(path, Q_read_text(path.c_str(), fault), fault);
  if (content.find_first_of(std::string_view("\0\xFF", 2)) != std::string::npos)
    throw Refusal("'" + path + "' is not a text file.");
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
    const std::string_view line = Q_stripped_end(text.substr(0, end));
    if (!line.empty()) lines.push_back({line, number});
    const std::size_t after = text.substr(end).starts_with("\r\n") ? end + 2 : end + 1;
    text.remove_prefix(std::min(after, text.size()));
  }
  return lines;
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

std::string decimals_of(double number) {
  char buffer[400];
  const auto [end, error] =
      std::to_chars(buffer, buffer + sizeof buffer, number, std::chars_format::fixed);
  return {buffer, end};
}

std::string file_checksum(const std::string& path) {
  Q_read_fault fault;
  return Q_sha256(content_of(path, Q_read_file(path.c_str(), max_any, fault), fault));
}

std::string at_line(const std::string& path, std::size_t line) {
  return "'" + path + "', line " + std::to_string(line) + ": ";
}

}  // namespace kvo::base
