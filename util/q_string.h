#pragma once

// The Q string: the one text type that paths, commands, messages and settings are built in.

#include <cstdarg>
#include <cstddef>
#include <string>
#include <string_view>

/// The most bytes that a Q string holds.
inline constexpr std::size_t Q_STRING_MAX = 49999;

/// Text of at most Q_STRING_MAX bytes, stored at its own length. Text that would pass the limit is
/// cut before the UTF-8 character that does not fit any more, and a warning is logged.
class Q_string {
 public:
  Q_string() = default;
  Q_string(std::string_view text) { append(text); }
  Q_string(const char* text) { append(text); }

  void append(std::string_view text);
  void clear() { text_.clear(); }

  [[nodiscard]] const char* c_str() const { return text_.c_str(); }
  [[nodiscard]] const std::string& str() const { return text_; }
  [[nodiscard]] std::size_t size() const { return text_.size(); }
  [[nodiscard]] bool empty() const { return text_.empty(); }
  bool operator==(const Q_string&) const = default;
  bool operator==(const char* text) const { return text_ == text; }

 private:
  std::string text_;
};

/// The length of the longest beginning of `text` of at most `limit` bytes that does not end inside
/// a UTF-8 character. Bytes that are not UTF-8 count as characters of their own.
std::size_t Q_utf8_cut(std::string_view text, std::size_t limit);

/// Formats a Q string as printf does.
[[gnu::format(printf, 1, 2)]] Q_string Q_format(const char* format, ...);

/// Formats text of any length as vprintf does; for texts that wrap a Q string, which may therefore
/// be longer than one.
[[gnu::format(printf, 1, 0)]] std::string Q_vformat(const char* format, std::va_list arguments);

/// Inside a function with a printf-style parameter `format` followed by "...": declares the
/// Q string `name` with the formatted text.
#define Q_FORMAT_ARGUMENTS(name, format)              \
  std::va_list name##_arguments;                      \
  va_start(name##_arguments, format);                 \
  Q_string name(Q_vformat(format, name##_arguments)); \
  va_end(name##_arguments)
