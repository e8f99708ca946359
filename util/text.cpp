#include "util/text.h"

#include <glib.h>

#include <algorithm>
#include <cstdarg>
#include <new>

#include "util/error.h"
#include "util/handles.h"

namespace {

struct Replacement {
  std::string_view characters;
  char becomes;
};
constexpr Replacement REPLACEMENTS[] = {
    {"\"*+<=>/|[\\]&'", '-'},
    {":;?!,", '.'},
    {" ", '_'},
};

char replaced(char character) {
  for (const Replacement& row : REPLACEMENTS)
    if (row.characters.find(character) != std::string_view::npos) return row.becomes;
  return character;
}

// The longest suffix of an output and that of a temporary file must still fit into 255 bytes.
constexpr std::size_t NAME_MAX_BYTES = 200;

/// The number of entries that a count given by a caller may stand for.
std::ptrdiff_t bounded(int n, const Q_string_list& list) {
  return std::clamp<std::ptrdiff_t>(n, 0, static_cast<std::ptrdiff_t>(list.size()));
}

}  // namespace

void Q_strcat(Q_string& destination, const char* format, ...) {
  Q_FORMAT_ARGUMENTS(text, format);
  destination.append(text.str());
}

std::string_view Q_trimmed(std::string_view text) {
  text = Q_trimmed_end(text);
  return text.substr(std::min(text.find_first_not_of(Q_WHITE_SPACE), text.size()));
}

std::string_view Q_trimmed_end(std::string_view text) {
  return text.substr(0, text.find_last_not_of(Q_WHITE_SPACE) + 1);
}

void Q_trim(Q_string& text) {
  std::string trimmed;
  trimmed.reserve(text.size());
  bool blank_due = false;
  for (const char character : text.str()) {
    if (Q_WHITE_SPACE.find(character) != std::string_view::npos) {
      blank_due = !trimmed.empty();
      continue;
    }
    if (blank_due) trimmed += ' ';
    blank_due = false;
    trimmed += character;
  }
  text = Q_string(trimmed);
}

void Q_replace_escape(Q_string& text) {
  std::string result = text.str();
  std::transform(result.begin(), result.end(), result.begin(), replaced);
  text = Q_string(result);
}

const char* Q_name_fault(std::string_view name) {
  if (name.empty()) return "is empty";
  if (name.front() == '.') return "begins with a full stop";
  if (name.size() > NAME_MAX_BYTES) return "is longer than 200 bytes";
  if (g_utf8_validate(name.data(), static_cast<gssize>(name.size()), nullptr) == FALSE)
    return "is not valid UTF-8";
  for (const char character : name) {
    const auto byte = static_cast<unsigned char>(character);
    if (byte < 0x20 || byte == 0x7F) return "holds a control character";
    if (character == '/') return "holds a slash";
  }
  return nullptr;
}

std::string Q_markup_escape(std::string_view text) {
  const auto length = static_cast<gssize>(text.size());
  const Q_g_memory<char> valid(g_utf8_make_valid(text.data(), length));
  const Q_g_memory<char> escaped(g_markup_escape_text(valid.get(), -1));
  return escaped.get();
}

std::string Q_malloc_string(const char* format, ...) {
  Q_FORMAT_ARGUMENTS(text, format);
  try {
    return text.str();
  } catch (const std::bad_alloc&) {
    Q_error("Insufficient memory\n");
  }
}

void Q_malloc_vs_string(Q_string_list& list, int n, const char* first, ...) {
  if (n < 1) return;
  if (list.size() < static_cast<std::size_t>(n)) list.resize(static_cast<std::size_t>(n));
  std::va_list arguments;
  va_start(arguments, first);
  const char* text = first;
  for (int i = 0; i < n; ++i) {
    list[static_cast<std::size_t>(i)] = Q_malloc_string("%s", text);
    if (i + 1 < n) text = va_arg(arguments, const char*);
  }
  va_end(arguments);
}

int Q_get_string_pos(int n, const Q_string_list& list, const char* format, ...) {
  Q_FORMAT_ARGUMENTS(text, format);
  const auto end = list.begin() + bounded(n, list);
  const auto found = std::find(list.begin(), end, text.str());
  return found == end ? -1 : static_cast<int>(found - list.begin());
}

void Q_sort_string_asc(int n, Q_string_list& list) {
  std::stable_sort(list.begin(), list.begin() + bounded(n, list));
}
