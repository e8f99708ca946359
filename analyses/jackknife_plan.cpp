#include "analyses/jackknife_plan.h"

#include "workspace/files/jackknife_names.h"

namespace {

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

}  // namespace

Kvo_jackknife_plan kvo_plan_jackknife(const Q_table& study_table, const std::string& name,
                                      const std::string& filter) {
  const std::vector<long> columns = included_columns(study_table, filter);
  const long names_row = Q_get_table_row_pos_or_die(study_table, "study");
  Q_string_list studies;
  for (const long column : columns) studies.push_back(cell(study_table, names_row, column));
  const Kvo_jackknife_names names = kvo_jackknife_names(name, studies);
  Kvo_jackknife_plan plan{names.name, {}};
  for (std::size_t i = 0; i < columns.size(); ++i) plan.runs.push_back({columns[i], names.maps[i]});
  return plan;
}
