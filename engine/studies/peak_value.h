#pragma once

// Peak heights as papers report them, and the t values that they stand for.

#include <optional>
#include <string>
#include <string_view>

#include "engine/studies/effect_size.h"
#include "engine/studies/peaks_list.h"

namespace kvo::studies {

/// The kinds of number in a list of peaks; `sign` has no numbers, only "+" and "-".
enum class ValueKind { t, z, p, g, sign };

/// The kind of that name ("t", "z", "p", "g", "sign"), nothing for others; and its name.
std::optional<ValueKind> value_kind_named(std::string_view name);
const char* name_of(ValueKind kind);

/// The t value of a number of that kind: for a z score or a one-tailed p (negative for negative
/// effects), the t with the same tail; for Hedges' g, the t that yields it. Infinite or NaN where
/// there is none. Not for `sign`.
double t_of_value(ValueKind kind, double value, Sample sample);

/// Sets the peak's height to what the text stands for: t values as they are, others converted, with
/// the original as a comment ("z 4.10"); for "", "+" and "-", the sign alone. False when the text
/// is not such a value, or one that no study has.
bool set_height(WrittenPeak& peak, ValueKind kind, std::string_view text, Sample sample);

/// A height as it was before set_height() converted it, and the rest of the comment. If it was not
/// converted, or the value in its comment does not convert to it: the t value, "p" or "n" itself.
/// Without a sample size nothing is converted, and a comment such as "z 4.10" beside a sign is the
/// original.
struct WrittenValue {
  ValueKind kind;
  std::string text, note;
};
WrittenValue written_value(const WrittenPeak& peak, std::optional<Sample> sample);

/// The largest absolute t value that the peak may have had before rounding: half a unit of the last
/// decimal above its height, or above the original that its comment keeps.
double largest_t(const WrittenPeak& peak, Sample sample);

}  // namespace kvo::studies
