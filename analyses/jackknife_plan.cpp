#include "analyses/jackknife_plan.h"

#include <algorithm>
#include <set>

#include "analyses/names.h"
#include "util/text.h"
#include "workspace/files/map_lists.h"

namespace {

/// The longest name of a map, and how much of it the names of analysis and study around "JK" get.
constexpr std::size_t MAP_NAME_MAX = 60;
constexpr std::size_t NAMES_MAX = MAP_NAME_MAX - 2;

std::string cell(const Q_table& table, long row, long column) {
  return TABLE(table, row, column).value_or("NA");
}

std::vector<long> included_columns(const Q_table& study_table, const std::string& filter) {
  const long columns = Q_table_ncol(study_table);
  const long row = filter.empty() ? -1 : Q_get_table_row_pos_or_die(study_table, filter.c_str());
  std::vector<long> included;
  for (long column = 1; column < columns; ++column)
    if (row < 0 || Q_leading_number(cell(study_table, row, column)) != 0)
      included.push_back(column);
  return included;
}

std::string cut(const std::string& text, std::size_t limit) {
  return text.substr(0, Q_utf8_cut(text, limit));
}

/// Appends a number to names that occur twice, or that no map can have, so that all names differ.
Q_string_list told_apart(const Q_string_list& names) {
  std::set<std::string> taken(names.begin(), names.end());
  std::set<std::string> given;
  Q_string_list result;
  for (const std::string& name : names) {
    std::string unique = name;
    for (int number = 2; given.contains(unique) || kvo_is_negative_tail(unique) ||
                         (unique != name && taken.contains(unique));
         ++number) {
      const std::string suffix = Q_format("_%i", number).str();
      unique = cut(name, MAP_NAME_MAX - suffix.size()) + suffix;
    }
    given.insert(unique);
    result.push_back(unique);
  }
  return result;
}

}  // namespace

Kvo_jackknife_plan kvo_plan_jackknife(const Q_table& study_table, const std::string& name,
                                      const std::string& filter) {
  const std::vector<long> columns = included_columns(study_table, filter);
  const long names_row = Q_get_table_row_pos_or_die(study_table, "study");
  Q_string_list studies;
  std::size_t longest = 0;
  for (const long column : columns) {
    studies.push_back(cut(cell(study_table, names_row, column), NAMES_MAX));
    longest = std::max(longest, studies.back().size());
  }
  Kvo_jackknife_plan plan{cut(name, NAMES_MAX - longest), {}};
  Q_string_list maps;
  for (const std::string& study : studies) maps.push_back(kvo_safe_name(plan.name + "JK" + study));
  maps = told_apart(maps);
  for (std::size_t i = 0; i < columns.size(); ++i) plan.runs.push_back({columns[i], maps[i]});
  return plan;
}
