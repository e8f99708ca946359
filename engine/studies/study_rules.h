#pragma once

// What is valid in the study table and among the files of its studies: the rules by which the
// engine refuses and the table editor marks what is not, in the same words.

#include <optional>
#include <string>
#include <string_view>

#include "engine/studies/studies_layer.h"

namespace kvo::studies {

/// The text of a missing value.
inline constexpr const char* missing_value = "NA";

/// Whether a cell holds nothing: it is empty or "NA".
bool is_missing(std::string_view text);

/// Why a cell of any column is not allowed in the table, worded to follow its description: "holds a
/// line break"; null when it can.
const char* cell_fault(std::string_view text);

/// A study's cells with the sizes of its samples, "" when the table has no such column.
struct SizeCells {
  std::string_view n1, n2;
};

/// Why the text cannot be the value of a column with a predefined meaning: "not a whole number from
/// 3 to 1000000000". Nothing when it can, and for the user's own variables. How small a sample may
/// be depends on whether there is a second one, how small a threshold_p on both sizes.
std::optional<std::string> value_fault(std::string_view column, std::string_view text,
                                       SizeCells sizes);

/// Why a study cannot have these two thresholds, worded to follow its name: "gives both threshold_t
/// and threshold_p"; null when it can.
const char* thresholds_fault(std::string_view threshold_t, std::string_view threshold_p);

/// Why a command cannot use a variable of this name, worded to follow the name: "holds a quote, '='
/// or '+'"; null when it can. The table may still have such a variable.
const char* variable_fault(std::string_view name);

/// The files of which a study of that name has one, with its data.
std::string peaks_file_of(const std::string& study);
std::string image_file_of(const std::string& study);

/// Why a study with these files has no data, or too much, as a sentence; nothing when it has
/// exactly one of the two.
std::optional<std::string> source_fault(const std::string& study, bool has_peaks, bool has_image);

}  // namespace kvo::studies
