#include "workspace/files/study_table.h"

#include <algorithm>
#include <utility>

#include "util/files.h"
#include "util/read_file.h"

Q_table KVO_TableT;

namespace {

constexpr const char* NO_VARIABLE = "(none)";

const std::string& name_of(long row) {
  static const std::string no_name;
  const Q_cell& name = TABLE(row, 0);
  return name ? *name : no_name;
}

bool is_listed(long row) {
  const std::string& name = name_of(row);
  return name != "study" && name != "n1" && name != "n2";
}

bool is_indicator(long row) {
  const long columns = Q_table_ncol(KVO_TableT);
  for (long column = 1; column < columns; ++column) {
    const Q_cell& value = TABLE(row, column);
    if (value != "1" && value != "0" && value != "NA") return false;
  }
  return true;
}

int list_variables(Q_string_list& list, bool (*wanted)(long row)) {
  list = {NO_VARIABLE};
  const long rows = Q_table_nrow(KVO_TableT);
  for (long row = 0; row < rows; ++row)
    if (wanted(row)) list.push_back(name_of(row));
  return static_cast<int>(list.size());
}

/// From the orientation of the file to that of the study table.
Q_table as_study_table(Q_table table) {
  const long rows = Q_table_nrow(table);
  const long columns = Q_table_ncol(table);
  for (long row = 0; row < rows; ++row)
    for (long column = 0; column < columns; ++column)
      if (TABLE(table, row, column).value_or("").empty()) Q_table_set(table, row, column, "NA");
  Q_table_t(table);
  return table;
}

}  // namespace

const Q_cell& TABLE(long row, long column) {
  return TABLE(KVO_TableT, row, column);
}

std::string kvotable_fault(const char* path) {
  Q_read_fault fault;
  if (Q_file_exists("%s", path) != 0) Q_table_read(path, fault);
  return fault.text;
}

Q_table kvotable_read(std::optional<std::string_view> content) {
  if (!content) return {"2", "1", "study", "n1"};
  Q_table table;
  Q_table_load_text(table, *content);
  return as_study_table(std::move(table));
}

bool kvotable_remove_leftover(Q_table& table) {
  const long rows = Q_table_nrow(table);
  for (long row = 0; (row = Q_get_table_row_pos(table, KVO_JACKKNIFE_VARIABLE)) >= 0;)
    Q_table_remove_row(table, row);
  return Q_table_nrow(table) < rows;
}

int kvotable_get_variables(Q_string_list& list) {
  return list_variables(list, is_listed);
}

int kvotable_get_variables_indicator(Q_string_list& list) {
  return list_variables(list, is_indicator);
}
