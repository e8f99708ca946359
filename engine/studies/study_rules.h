#pragma once

// What the study table and the files of its studies may be: the rules by which the engine refuses
// them and the table editor marks them, in words that both use.

#include <optional>
#include <string>
#include <string_view>

#include "engine/studies/studies_layer.h"

namespace kvo::studies {

/// What stands where there is no value.
inline constexpr const char* missing_value = "NA";

/// Whether a cell holds nothing: it is empty or "NA".
bool is_missing(std::string_view text);

/// Why a cell of any column cannot stand in the table, to follow its description: "holds a line
/// break"; null when it can.
const char* cell_fault(std::string_view text);

/// A study's cells with the sizes of its samples, "" when the table has no such column.
struct SizeCells {
  std::string_view n1, n2;
};

/// Why the text cannot be the value of a column that has a meaning: "not a whole number from 3 to
/// 1000000000". Nothing when it can, and for columns that are anyone's variables. How small a
/// sample may be depends on whether there is a second one, how small a threshold_p on both sizes.
std::optional<std::string> value_fault(std::string_view column, std::string_view text,
                                       SizeCells sizes);

/// Why a study cannot have these two thresholds, to follow its name: "gives both threshold_t and
/// threshold_p"; null when it can.
const char* thresholds_fault(std::string_view threshold_t, std::string_view threshold_p);

/// Why a command cannot have the name of a variable in it, to follow the name: "holds a quote, '='
/// or '+'"; null when it can. The table may have such a variable.
const char* variable_fault(std::string_view name);

/// The files that a study of that name has its data in, one of the two.
std::string peaks_file_of(const std::string& study);
std::string image_file_of(const std::string& study);

/// Why a study with those of its files has no data, or too many, as a sentence; nothing when it has
/// one of the two.
std::optional<std::string> source_fault(const std::string& study, bool has_peaks, bool has_image);

}  // namespace kvo::studies
