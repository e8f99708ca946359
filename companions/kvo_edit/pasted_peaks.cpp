#include "companions/kvo_edit/pasted_peaks.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <utility>

#include "engine/base/text_file.h"
#include "engine/formats/foreign_text.h"
#include "util/text.h"

namespace kvo::edit {

namespace {

constexpr double HEAD_MM = 120;
constexpr std::size_t COORDINATES = 3;

/// Whether commas stand between thousands: "1,234".
bool has_thousands(std::string_view text) {
  const std::size_t comma = text.find(',');
  if (comma == std::string_view::npos || comma == 0 || comma > 3) return false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool separates = i >= comma && (i - comma) % 4 == 0;
    if (separates ? text[i] != ',' : std::isdigit(static_cast<unsigned char>(text[i])) == 0)
      return false;
  }
  return (text.size() - comma) % 4 == 0;
}

/// The number that a cell or word is; "" when it is none.
std::string number_in(std::string_view text, bool decimal_comma) {
  constexpr std::string_view around = "()[]{};, \t";
  const std::size_t first = text.find_first_not_of(around);
  if (first == std::string_view::npos) return "";
  text = text.substr(first, text.find_last_not_of(around) + 1 - first);
  std::string plain(text);
  if (!decimal_comma && has_thousands(plain)) std::erase(plain, ',');
  plain = formats::plain_number(plain, decimal_comma);
  return number_of(plain) ? plain : "";
}

void add_word(std::string& words, std::string_view word) {
  const std::string_view stripped = Q_stripped(word);
  if (stripped.empty()) return;
  if (!words.empty()) words += ' ';
  words += stripped;
}

Pasted_line line_of_cells(std::string_view text, bool decimal_comma) {
  Pasted_line line;
  for (std::size_t begin = 0, end = 0; end != std::string_view::npos; begin = end + 1) {
    end = text.find('\t', begin);
    const std::string_view cell = text.substr(begin, end - begin);
    line.numbers.push_back(number_in(cell, decimal_comma));
    if (line.numbers.back().empty()) add_word(line.words, cell);
  }
  return line;
}

/// The words of a line; a minus sign that stands apart belongs to the number behind it.
std::vector<std::string> words_of(std::string_view text) {
  std::vector<std::string> words;
  bool is_negative = false;
  for (const std::string_view word : Q_words(text)) {
    const bool begins_number = std::isdigit(static_cast<unsigned char>(word.front())) != 0;
    if (is_negative && begins_number)
      words.back() += word;
    else
      words.emplace_back(word);
    is_negative = formats::plain_number(word, false) == "-";
  }
  return words;
}

Pasted_line line_of_words(std::string_view text, bool decimal_comma) {
  const std::vector<std::string> words = words_of(text);
  std::vector<std::string> numbers;
  std::size_t begin = 0, end = 0;  // of the longest run
  bool in_words = false;           // between brackets
  for (std::size_t i = 0, from = 0; i < words.size(); ++i) {
    numbers.push_back(number_in(words[i], decimal_comma));
    // "(BA 13)" is no number, and "(-38, 4, -2)" is three.
    const bool opens = words[i].find_first_of("([") == 0;
    in_words = in_words || (opens && numbers.back().empty());
    if (in_words) numbers.back().clear();
    if (words[i].find_first_of(")]") != std::string::npos) in_words = false;
    if (numbers.back().empty()) from = i + 1;
    if (i + 1 - from > end - begin) std::tie(begin, end) = std::pair(from, i + 1);
  }
  Pasted_line line;
  for (std::size_t i = 0; i < words.size(); ++i)
    if (i >= begin && i < end)
      line.numbers.push_back(numbers[i]);
    else
      add_word(line.words, words[i]);
  return line;
}

/// The number at a place; nothing when there is none.
std::optional<double> number_at(const Pasted_line& line, std::size_t place) {
  return place < line.numbers.size() ? number_of(line.numbers[place]) : std::nullopt;
}

bool is_whole(double number) {
  return std::floor(number) == number;
}

/// How likely the coordinates begin there: by lines with three whole numbers that fit into a head,
/// then by negative ones.
std::pair<long, long> likelihood(const std::vector<Pasted_line>& lines, std::size_t place) {
  long fitting = 0, negative = 0;
  for (const Pasted_line& line : lines) {
    bool fits = true;
    for (std::size_t n = place; n < place + COORDINATES; ++n) {
      const std::optional<double> mm = number_at(line, n);
      fits = fits && mm && std::abs(*mm) <= HEAD_MM && is_whole(*mm);
      negative += mm && *mm < 0 ? 1 : 0;
    }
    fitting += fits ? 1 : 0;
  }
  return {fitting, negative};
}

/// How many lines have a number there that is not whole.
long fractions(const std::vector<Pasted_line>& lines, std::size_t place) {
  return std::ranges::count_if(lines, [&](const Pasted_line& line) {
    const std::optional<double> number = number_at(line, place);
    return number && !is_whole(*number);
  });
}

/// What a line of names says that the values are.
ValueKind guessed_kind(const std::vector<Pasted_line>& lines) {
  for (const Pasted_line& line : lines) {
    long z_words = 0;
    for (const std::string_view word : Q_words(line.words)) {
      const std::string bare = formats::bare_word(word);
      for (const char* kind : {"t", "z", "p"})
        if (bare == std::string(kind) + "value" || bare == std::string(kind) + "score")
          return *value_kind_named(kind);
      z_words += bare == "z" ? 1 : 0;
    }
    if (z_words > 1) return ValueKind::z;
  }
  return ValueKind::t;
}

bool is_not_significant(std::string_view words) {
  return std::ranges::any_of(
      Q_words(words), [](std::string_view word) { return formats::bare_word(word) == "ns"; });
}

}  // namespace

std::vector<Pasted_line> pasted_lines(std::string_view text, bool decimal_comma) {
  std::vector<Pasted_line> lines;
  const bool has_cells = text.find('\t') != std::string_view::npos;
  for (const TextLine& line : filled_lines(text)) {
    lines.push_back(has_cells ? line_of_cells(line.text, decimal_comma)
                              : line_of_words(line.text, decimal_comma));
    lines.back().number = line.number;
  }
  return lines;
}

Pasted_places guessed_places(const std::vector<Pasted_line>& lines) {
  Pasted_places places;
  std::size_t most = 0;
  for (const Pasted_line& line : lines) most = std::max(most, line.numbers.size());
  for (std::size_t place = 1; place + COORDINATES <= most; ++place)
    if (likelihood(lines, place) > likelihood(lines, places.x)) places.x = place;
  const std::size_t behind = places.x + COORDINATES;
  if (behind < most) places.value = behind;
  if (places.x > 0 && fractions(lines, places.x - 1) > 0 &&
      (behind >= most || fractions(lines, behind) == 0))
    places.value = places.x - 1;
  places.kind = guessed_kind(lines);
  return places;
}

Pasted_peaks pasted_peaks(const std::vector<Pasted_line>& lines, const Pasted_places& places) {
  Pasted_peaks peaks;
  for (const Pasted_line& line : lines) {
    const auto drop = [&](const std::string& why) {
      peaks.dropped.push_back("Line " + std::to_string(line.number) + " " + why + ".");
    };
    std::vector<std::string> row;
    for (std::size_t n = places.x; n < places.x + COORDINATES; ++n)
      if (const auto mm = number_at(line, n); mm && std::abs(*mm) <= max_peak_mm)
        row.push_back(line.numbers[n]);
    if (row.size() < COORDINATES) {
      drop("has no coordinates");
      continue;
    }
    const bool has_value = places.value && number_at(line, *places.value);
    if (!has_value && is_not_significant(line.words)) {
      drop("is not significant");
      continue;
    }
    row.push_back(has_value ? line.numbers[*places.value] : "+");
    row.emplace_back(name_of(has_value ? places.kind : ValueKind::sign));
    row.push_back(line.words);
    peaks.rows.push_back(std::move(row));
  }
  return peaks;
}

}  // namespace kvo::edit
