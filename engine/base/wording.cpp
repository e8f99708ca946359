#include "engine/base/wording.h"

#include <glib.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <iterator>

#include "kvo_config.h"
#include "util/handles.h"
#include "util/q_string.h"

namespace kvo::base {

namespace {

constexpr const char* minus_sign = "\u2212";
constexpr const char* replacement = "\uFFFD";
constexpr const char* not_a_number = "\u2013";
constexpr std::array<const char*, 10> superscripts = {"\u2070", "\u00B9", "\u00B2", "\u00B3",
                                                      "\u2074", "\u2075", "\u2076", "\u2077",
                                                      "\u2078", "\u2079"};

bool is_shown(gunichar character) {
  const bool control = character < 0x20 || (character >= 0x7F && character < 0xA0);
  return !control && character != 0xFFFE && character != 0xFFFF;
}

std::string fixed(double value, int decimals) {
  char text[400];
  std::snprintf(text, sizeof text, "%.*f", decimals, value);
  return text;
}

/// The characters that HTML would read as markup.
struct Escape {
  char byte;
  std::string_view escaped;
};
constexpr Escape escapes[] = {
    {'&', "&amp;"}, {'<', "&lt;"}, {'>', "&gt;"}, {'"', "&quot;"}, {'\'', "&#39;"}};

}  // namespace

std::string printable_text(std::string_view text) {
  if (text.empty()) return {};
  const Q_g_memory<char> valid(g_utf8_make_valid(text.data(), gssize(text.size())));
  std::string shown;
  shown.reserve(text.size());
  for (const char* at = valid.get(); *at != '\0';) {
    const char* next = g_utf8_next_char(at);
    if (*at == '\t' || *at == '\n' || *at == '\r')
      shown += ' ';
    else if (is_shown(g_utf8_get_char(at)))
      shown.append(at, next);
    else
      shown += replacement;
    at = next;
  }
  return shown;
}

std::string html_escaped(std::string_view text) {
  std::string escaped;
  for (const char byte : printable_text(text)) {
    const auto* const found = std::find_if(std::begin(escapes), std::end(escapes),
                                           [&](const Escape& each) { return each.byte == byte; });
    if (found == std::end(escapes))
      escaped += byte;
    else
      escaped += found->escaped;
  }
  return escaped;
}

std::string html_unescaped(std::string_view escaped) {
  std::string text;
  while (!escaped.empty()) {
    const auto* const found =
        std::find_if(std::begin(escapes), std::end(escapes),
                     [&](const Escape& each) { return escaped.starts_with(each.escaped); });
    const bool is_plain = found == std::end(escapes);
    text += is_plain ? escaped.front() : found->byte;
    escaped.remove_prefix(is_plain ? 1 : found->escaped.size());
  }
  return text;
}

std::string decimal_text(double value, int decimals) {
  if (!std::isfinite(value)) return not_a_number;
  const std::string digits = fixed(std::abs(value), decimals);
  const bool zero = digits.find_first_not_of("0.") == std::string::npos;
  return (value < 0 && !zero ? minus_sign : "") + digits;
}

std::string p_text(double p) {
  if (!std::isfinite(p)) return not_a_number;
  if (p >= 0.001 || p <= 0) return fixed(p, 3);
  if (p >= 0.0001) return fixed(p, 5);
  char scientific[32];
  std::snprintf(scientific, sizeof scientific, "%.1e", p);
  const std::string_view text = scientific;
  const std::size_t exponent = text.find('e');
  std::string shown(text.substr(0, exponent));
  shown += " \u00D7 10\u207B";
  for (const char digit : std::to_string(-std::atoi(scientific + exponent + 1)))
    shown += superscripts[std::size_t(digit - '0')];
  return shown;
}

std::string p_phrase(double p) {
  return p < 1 && p >= 0.9995 ? "p > 0.999" : "p = " + p_text(p);
}

std::string listed(std::span<const std::string> names, const char* last) {
  std::string text;
  for (std::size_t i = 0; i < names.size(); ++i)
    text += (i == 0 ? "" : i + 1 < names.size() ? ", " : last) + names[i];
  return text;
}

std::string version_text() {
  return Q_format("%.2f", KVO_VERSION).str();
}

std::string program_text() {
  return "KVO " + version_text();
}

}  // namespace kvo::base
