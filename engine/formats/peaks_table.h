#pragma once

// Tables with one peak a line and a column for each thing that is known of it.

#include <string>
#include <string_view>
#include <vector>

#include "engine/formats/foreign.h"

namespace kvo::formats {

/// What a column of such a table holds.
enum class Role {
  study,
  n1,
  n2,
  x,
  y,
  z,
  t_value,
  z_value,
  p_value,
  g_value,
  sign,  ///< heights, by what they are
  value,
  kind,  ///< a height whose kind the second column says
  space,
  note,
  variable,  ///< anything that is the same in all lines of a study
};

/// What the columns of those names are likely to hold. Several may be `variable` or `note`; of
/// those that may have one meaning, such as "N" and "n1", the plainest name has it.
std::vector<Role> guessed_roles(const std::vector<std::string>& names);

/// The studies of such a text, in the order of their first lines. A line without coordinates is a
/// study that found nothing. Throws Refusal, naming the path and the line, when a column is missing
/// or a line does not fit.
ForeignStudies table_studies(const std::string& path, std::string_view text);

/// The text that holds the studies, with that separator between cells.
std::string table_text(const std::vector<NewStudy>& studies, char separator);

}  // namespace kvo::formats
