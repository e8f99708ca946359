#include "engine/formats/foreign_text.h"

#include <array>
#include <optional>

#include "engine/base/text_file.h"
#include "util/read_file.h"
#include "util/text.h"

namespace kvo::formats {

namespace {

std::string utf8_of_latin1(std::string_view text) {
  std::string result;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x80) {
      result += c;
    } else {
      result += char(0xC0 | (byte >> 6));
      result += char(0x80 | (byte & 0x3F));
    }
  }
  return result;
}

void replace_all(std::string& text, std::string_view from, std::string_view to) {
  for (std::size_t at = text.find(from); at != std::string::npos;
       at = text.find(from, at + to.size()))
    text.replace(at, from.size(), to);
}

}  // namespace

ForeignText read_foreign_text(const std::string& path) {
  Q_read_fault fault;
  std::optional<std::string> content = Q_read_text(path.c_str(), fault);
  if (!content) throw unread(path, fault);
  if (content->find('\0') != std::string::npos) throw Refusal("'" + path + "' is not a text file.");
  if (Q_is_utf8(*content)) return {std::move(*content), false};
  return {utf8_of_latin1(*content), true};
}

std::string plain_number(std::string_view text, bool decimal_comma) {
  // Minus signs, dashes and hyphens; blanks of several widths; marks of significance.
  constexpr std::array<std::string_view, 6> minus = {"−", "–", "—", "‒", "‐", "‑"};
  constexpr std::array<std::string_view, 16> nothing = {
      "\u00A0", "\u2009", "\u202F", "\u2007", "*", "†", "‡", "§",
      "\uFEFF", "¹",      "²",      "³",      "ᵃ", "ᵇ", "ᶜ", "ᵈ"};
  std::string number(Q_stripped(text));
  if (number.find_first_not_of("0123456789.-+eE") == std::string::npos) {
    if (number.starts_with('+') && number.size() > 1) number.erase(0, 1);
    return number;
  }
  for (const std::string_view sign : minus) replace_all(number, sign, "-");
  for (const std::string_view mark : nothing) replace_all(number, mark, "");
  if (decimal_comma) replace_all(number, ",", ".");
  number = Q_stripped(number);
  if (number.starts_with("- ")) number.erase(1, 1);
  if (number.starts_with('+') && number.size() > 1) number.erase(0, 1);
  return number;
}

std::string one_line(std::string_view text) {
  std::string line(text);
  for (char& c : line)
    if (Q_is_control(c)) c = ' ';
  return Q_trimmed(line);
}

std::string cut_at_character(std::string text, std::size_t most) {
  if (text.size() <= most) return text;
  while (most > 0 && (static_cast<unsigned char>(text[most]) & 0xC0) == 0x80) --most;
  text.resize(most);
  return text;
}

std::string bare_word(std::string_view text) {
  std::string word;
  for (const char c : text) {
    if ((c >= 'a' && c <= 'z') || (c >= '0' && c <= '9')) word += c;
    if (c >= 'A' && c <= 'Z') word += char(c - 'A' + 'a');
  }
  return word;
}

Space space_called(std::string_view name) {
  const std::string word = bare_word(name);
  if (word.find("tal") == 0 || word == "tt" || word == "tt88") return Space::talairach;
  if (word.find("mni") != std::string::npos || word.find("icbm") == 0 || word == "spm")
    return Space::mni;
  return Space::unknown;
}

}  // namespace kvo::formats
