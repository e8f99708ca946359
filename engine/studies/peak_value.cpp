#include "engine/studies/peak_value.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

#include "engine/base/t_statistic.h"
#include "engine/base/text_file.h"
#include "util/q_string.h"
#include "util/text.h"

namespace kvo::studies {

namespace {

constexpr std::array kind_names = {"t", "z", "p", "g", "sign"};

/// By how much the number may have been rounded: half a unit of its last decimal.
double rounding_of(std::string_view number) {
  const std::size_t exponent = std::min(number.find_first_of("eE"), number.size());
  const std::size_t point = number.find('.');
  const std::size_t decimals = point < exponent ? exponent - point - 1 : 0;
  const double tens = Q_leading_number(number.substr(std::min(exponent + 1, number.size())));
  return 0.5 * std::pow(10, tens - double(decimals));
}

struct Original {
  ValueKind kind;
  std::string_view text;
};

/// The original in a comment such as "z 4.10". Nothing when it does not convert to the peak's
/// height: users write such comments too, and correct heights and sample sizes.
std::optional<Original> original_of(const WrittenPeak& peak, std::optional<Sample> sample) {
  const std::vector<std::string_view> words = Q_words(peak.comment);
  if (words.size() < 2 || words[0] == "t") return std::nullopt;
  const std::optional<ValueKind> kind = value_kind_named(words[0]);
  if (!kind || *kind == ValueKind::sign || !number_of(words[1])) return std::nullopt;
  WrittenPeak again;
  const bool has_sign_alone = peak.height == "p" || peak.height == "n";
  if (sample ? !set_height(again, *kind, words[1], *sample) || again.height != peak.height
             : !has_sign_alone)
    return std::nullopt;
  return Original{*kind, words[1]};
}

}  // namespace

std::optional<ValueKind> value_kind_named(std::string_view name) {
  const auto found = std::find(kind_names.begin(), kind_names.end(), name);
  if (found == kind_names.end()) return std::nullopt;
  return ValueKind(found - kind_names.begin());
}

const char* name_of(ValueKind kind) {
  return kind_names.at(std::size_t(kind));
}

double t_of_value(ValueKind kind, double value, Sample sample) {
  const double df = degrees_of_freedom(sample);
  switch (kind) {
    case ValueKind::z:
      return t_of_z(value, df);
    case ValueKind::p:
      return std::abs(value) > 0 && std::abs(value) < 1
                 ? std::copysign(t_of_log10_p(-std::log10(std::abs(value)), df), value)
                 : std::numeric_limits<double>::quiet_NaN();
    case ValueKind::g:
      return value / hedges_g(1, sample);
    default:
      return value;
  }
}

bool set_height(WrittenPeak& peak, ValueKind kind, std::string_view text, Sample sample) {
  if (text.empty() || text == "+" || text == "-" || kind == ValueKind::sign) {
    const std::optional<double> number = number_of(text);
    peak.height = text.starts_with('-') || text == "n" ? "n" : "p";
    return text.empty() || text == "+" || text == "-" || text == "p" || text == "n" ||
           (number && *number != 0);
  }
  const std::optional<double> value = number_of(text);
  if (!value) return false;
  const double t = t_of_value(kind, *value, sample);
  if (!std::isfinite(t) || std::abs(t) > max_t) return false;
  peak.height = kind == ValueKind::t ? std::string(text) : Q_format("%.7g", t).str();
  if (kind == ValueKind::t) return true;
  const std::string original = std::string(name_of(kind)) + " " + std::string(text);
  peak.comment = original + (peak.comment.empty() ? "" : "  " + peak.comment);
  return true;
}

WrittenValue written_value(const WrittenPeak& peak, std::optional<Sample> sample) {
  if (const auto original = original_of(peak, sample)) {
    const std::size_t end =
        std::size_t(original->text.data() - peak.comment.data()) + original->text.size();
    return {original->kind, std::string(original->text),
            std::string(Q_stripped(std::string_view(peak.comment).substr(end)))};
  }
  if (peak.height == "p" || peak.height == "n") return {ValueKind::sign, peak.height, peak.comment};
  return {ValueKind::t, peak.height, peak.comment};
}

double largest_t(const WrittenPeak& peak, Sample sample) {
  const double t = number_of(peak.height).value_or(0);
  const double largest = std::abs(t) + rounding_of(peak.height);
  const std::optional<Original> original = original_of(peak, sample);
  if (!original) return largest;
  const double size = std::abs(number_of(original->text).value());
  const double rounding = rounding_of(original->text);
  const bool is_p = original->kind == ValueKind::p;
  // A p may have been rounded up, from as little as 0.
  const double unrounded =
      is_p ? std::max(size - rounding, std::numeric_limits<double>::min()) : size + rounding;
  return std::max(largest, t_of_value(original->kind, unrounded, sample));
}

}  // namespace kvo::studies
