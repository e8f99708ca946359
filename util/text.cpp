#include "util/text.h"

#include <glib.h>

#include <algorithm>
#include <charconv>
#include <cstdarg>
#include <cstdlib>
#include <new>

#include "util/error.h"
#include "util/handles.h"

namespace {

constexpr const char* NARROW_BLANK = "\u202F";

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

/// The number of entries that a count given by a caller may stand for.
std::ptrdiff_t bounded(int n, const Q_string_list& list) {
  return std::clamp<std::ptrdiff_t>(n, 0, static_cast<std::ptrdiff_t>(list.size()));
}

}  // namespace

void Q_strcat(Q_string& destination, const char* format, ...) {
  Q_FORMAT_ARGUMENTS(text, format);
  destination.append(text.str());
}

std::string_view Q_stripped(std::string_view text) {
  text = Q_stripped_end(text);
  return text.substr(std::min(text.find_first_not_of(Q_WHITE_SPACE), text.size()));
}

std::string_view Q_stripped_end(std::string_view text) {
  return text.substr(0, text.find_last_not_of(Q_WHITE_SPACE) + 1);
}

std::vector<std::string_view> Q_words(std::string_view text) {
  std::vector<std::string_view> words;
  for (;;) {
    text.remove_prefix(std::min(text.find_first_not_of(Q_WHITE_SPACE), text.size()));
    if (text.empty()) return words;
    words.push_back(text.substr(0, text.find_first_of(Q_WHITE_SPACE)));
    text.remove_prefix(words.back().size());
  }
}

std::string Q_trimmed(std::string_view text) {
  if (text.find_first_of(Q_WHITE_SPACE) == std::string_view::npos) return std::string(text);
  std::string trimmed;
  for (const std::string_view word : Q_words(text))
    trimmed.append(trimmed.empty() ? "" : " ").append(word);
  return trimmed;
}

void Q_trim(Q_string& text) {
  text = Q_string(Q_trimmed(text.str()));
}

double Q_leading_number(std::string_view text) {
  text.remove_prefix(std::min(text.find_first_not_of(Q_WHITE_SPACE), text.size()));
  if (text.starts_with('+') && !text.starts_with("+-")) text.remove_prefix(1);
  double number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  // Too large or too small for the type: strtod() tells which.
  if (error == std::errc::result_out_of_range)
    return std::strtod(std::string(text.data(), end).c_str(), nullptr);
  return number;
}

std::string Q_count_text(std::size_t count) {
  std::string digits = std::to_string(count);
  if (digits.size() < 5) return digits;
  for (std::size_t at = digits.size() - 3; at > 0 && at < digits.size(); at -= 3) {
    digits.insert(at, NARROW_BLANK);
    if (at < 3) break;
  }
  return digits;
}

std::string Q_counted(std::size_t count, const char* one, const char* several) {
  return Q_count_text(count) + " " + (count == 1 ? one : several);
}

std::string Q_sha256(std::string_view bytes) {
  const Q_g_memory<char> text(g_compute_checksum_for_data(
      G_CHECKSUM_SHA256, reinterpret_cast<const guchar*>(bytes.data()), bytes.size()));
  return text.get();
}

std::string Q_sha256_bytes(std::string_view bytes) {
  const std::string text = Q_sha256(bytes);
  std::string digest;
  for (std::size_t i = 0; i < text.size(); i += 2)
    digest += char(std::stoi(text.substr(i, 2), nullptr, 16));
  return digest;
}

bool Q_is_control(char character) {
  const auto byte = static_cast<unsigned char>(character);
  return byte < 0x20 || byte == 0x7F;
}

bool Q_is_utf8(std::string_view text) {
  return g_utf8_validate(text.data(), static_cast<gssize>(text.size()), nullptr) != FALSE;
}

void Q_replace_escape(Q_string& text) {
  std::string result = text.str();
  std::transform(result.begin(), result.end(), result.begin(), replaced);
  text = Q_string(result);
}

const char* Q_name_fault(std::string_view name) {
  if (name.empty()) return "is empty";
  if (name.front() == '.') return "begins with a full stop";
  static_assert(Q_NAME_MAX == 200);
  if (name.size() > Q_NAME_MAX) return "is longer than 200 bytes";
  if (!Q_is_utf8(name)) return "is not valid UTF-8";
  for (const char character : name) {
    if (Q_is_control(character)) return "holds a control character";
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
