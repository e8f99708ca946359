#include "util/q_string.h"

#include <glib.h>

#include <cstdio>

#include "util/error.h"
#include "util/handles.h"

namespace {

bool is_continuation(char byte) {
  return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
}

/// Length of the UTF-8 character that a byte begins; 1 for bytes that begin none.
std::size_t character_length(char lead) {
  const auto byte = static_cast<unsigned char>(lead);
  if (byte >= 0xF0 && byte < 0xF8) return 4;
  if (byte >= 0xE0 && byte < 0xF0) return 3;
  if (byte >= 0xC0 && byte < 0xE0) return 2;
  return 1;
}

}  // namespace

std::size_t Q_utf8_cut(std::string_view text, std::size_t limit) {
  if (text.size() <= limit) return text.size();
  std::size_t start = limit;
  while (start > 0 && limit - start < 4 && is_continuation(text[start])) --start;
  return start + character_length(text[start]) > limit && !is_continuation(text[start]) ? start
                                                                                        : limit;
}

void Q_string::append(std::string_view text) {
  const std::size_t room = Q_STRING_MAX - text_.size();
  const std::size_t length = Q_utf8_cut(text, room);
  if (length < text.size())
    g_warning("A text of %zu bytes was cut at %zu bytes", text_.size() + text.size(),
              text_.size() + length);
  text_.append(text.substr(0, length));
}

std::string Q_vformat(const char* format, std::va_list arguments) {
  char* raw = nullptr;
  const int length = vasprintf(&raw, format, arguments);
  if (length < 0) Q_error("Insufficient memory\n");
  const Q_heap_memory<char> text(raw);
  return {text.get(), static_cast<std::size_t>(length)};
}

Q_string Q_format(const char* format, ...) {
  Q_FORMAT_ARGUMENTS(text, format);
  return text;
}
