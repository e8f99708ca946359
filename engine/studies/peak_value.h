#pragma once

// What papers give as the height of a peak, and the t value that it stands for.

#include <optional>
#include <string>
#include <string_view>

#include "engine/studies/effect_size.h"
#include "engine/studies/peaks_list.h"

namespace kvo::studies {

/// What the numbers of a list of peaks are; `sign` has none, but "+" and "-".
enum class ValueKind { t, z, p, g, sign };

/// The kind of that name ("t", "z", "p", "g", "sign"), nothing for others; and its name.
std::optional<ValueKind> value_kind_named(std::string_view name);
const char* name_of(ValueKind kind);

/// The t value of a number of that kind: of a z score, or of a one-tailed p (negative for negative
/// effects) the t of the same tail, of Hedges' g the t that has it. Infinite or not a number where
/// there is none. Not for `sign`.
double t_of_value(ValueKind kind, double value, Sample sample);

/// Gives the peak the height that the text stands for: t values as they are, others converted, with
/// the original as a comment ("z 4.10"). Of "", "+" and "-", the sign alone. False when the text is
/// no such value, or one that no study has.
bool set_height(WrittenPeak& peak, ValueKind kind, std::string_view text, Sample sample);

/// What a height was before it was converted by set_height(), and the rest of the comment; the t
/// value, "p" or "n" where it was not, and where its comment does not come to the height. Without
/// sample size nothing is converted, and a comment such as "z 4.10" beside a sign is the original.
struct WrittenValue {
  ValueKind kind;
  std::string text, note;
};
WrittenValue written_value(const WrittenPeak& peak, std::optional<Sample> sample);

/// The absolute t value that the peak may have had before it was rounded: half of a unit of the
/// last decimal above its height, or above the original that its comment keeps.
double largest_t(const WrittenPeak& peak, Sample sample);

}  // namespace kvo::studies
