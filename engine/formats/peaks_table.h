#pragma once

// Tables with one peak per line and a column for each thing known about it.

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
  kind,  ///< a height, and the column that gives its kind
  space,
  note,
  variable,  ///< anything that is the same in all lines of a study
  nothing,   ///< what is left out
};
inline constexpr std::size_t role_count = std::size_t(Role::nothing) + 1;

/// What the role is called where it is chosen.
const char* role_name(Role role);

/// What the columns of those names are likely to hold. Several may be `variable` or `note`; of
/// those that may have the same meaning, such as "N" and "n1", the plainest name gets it.
std::vector<Role> guessed_roles(const std::vector<std::string>& names);

/// The studies of such a text, in the order of their first lines. A line without coordinates is a
/// study that found nothing. Throws Refusal, naming the path and the line, when a column is missing
/// or a line does not fit.
ForeignStudies table_studies(const std::string& path, std::string_view text);
/// The same with the roles of the columns instead of guessed ones.
ForeignStudies table_studies(const std::string& path, std::string_view text,
                             std::vector<Role> roles);

/// Which of the roles that every table needs these lack, by their names.
std::vector<std::string> missing_roles(const std::vector<Role>& roles);

/// The text that holds the studies, with that separator between cells.
std::string table_text(const std::vector<NewStudy>& studies, char separator);

}  // namespace kvo::formats
