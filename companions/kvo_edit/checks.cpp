#include "companions/kvo_edit/checks.h"

#include <algorithm>

#include "companions/kvo_edit/table_file.h"
#include "engine/base/text_file.h"
#include "engine/studies/study_rules.h"
#include "util/files.h"
#include "util/q_string.h"
#include "util/text.h"
#include "workspace/files/study_table.h"

namespace kvo::edit {

namespace {

Fault problem(std::string text) {
  return {Severity::problem, std::move(text)};
}

bool is_doubled(const std::unordered_map<std::string, long>& names, const std::string& name) {
  const auto found = names.find(name);
  return found != names.end() && found->second > 1;
}

/// What a command or a dialog cannot make use of; the engine takes such a table.
std::optional<std::string> unusable_name(const std::string& name) {
  if (is_missing(name)) return "The variable has no name.";
  if (const char* fault = variable_fault(name))
    return "The name " + std::string(fault) + ", which commands cannot hold in a name.";
  if (name == KVO_JACKKNIFE_VARIABLE)
    return "This name is kept for jackknife analyses, which add and remove such a variable.";
  if (name == "(none)") return "This name stands for no variable where one is chosen.";
  return std::nullopt;
}

/// What makes the engine refuse the whole table.
std::optional<std::string> refused_name(const Check_index& index, const std::string& name,
                                        long allowed) {
  if (const char* fault = storage_fault(name))
    return "The name " + std::string(fault) + ", which the table file cannot hold in a name.";
  const auto found = index.variable_names.find(name);
  if (!name.empty() && found != index.variable_names.end() && found->second > allowed)
    return "Another variable has the same name.";
  return std::nullopt;
}

std::optional<Fault> header_fault(const Check_index& index, const Table& table, long column) {
  const std::string& name = cell(table, HEADER, column);
  if (auto text = refused_name(index, name, 1)) return problem(*std::move(text));
  if (index.study_column < 0 && column == 0)
    return problem("No variable is called 'study', the one with the names of the studies.");
  if (index.n1_column < 0 && column == std::max(index.study_column, 0L))
    return problem("No variable is called 'n1', the one with the sample sizes.");
  if (auto text = unusable_name(name)) return Fault{Severity::note, *std::move(text)};
  return std::nullopt;
}

std::optional<Fault> study_name_fault(const Check_index& index, const std::string& name) {
  if (is_missing(name)) return problem("The study has no name.");
  if (const char* fault = Q_name_fault(name))
    return problem("The name of the study " + std::string(fault) + ".");
  if (is_doubled(index.study_names, name)) return problem("Another study has the same name.");
  const bool has_peaks = index.files.contains(peaks_file_of(name));
  if (auto fault = source_fault(name, has_peaks, index.files.contains(image_file_of(name))))
    // A file that is missing may be yet to come.
    return Fault{has_peaks ? Severity::problem : Severity::note, *std::move(fault)};
  return std::nullopt;
}

std::optional<Fault> value_fault_of(const Check_index& index, const Table& table, long row,
                                    long column) {
  const std::string& variable = cell(table, HEADER, column);
  const std::string& text = cell(table, row, column);
  const auto cell_in = [&](long of) { return of < 0 ? std::string() : cell(table, row, of); };
  const std::string n1 = cell_in(index.n1_column), n2 = cell_in(index.n2_column);
  if (const auto fault = value_fault(variable, text, {n1, n2})) {
    if (is_missing(text)) return problem("The sample size is missing.");
    const bool is_size = column == index.n1_column || column == index.n2_column;
    return problem((is_size ? "The sample size" : variable) + " is " + *fault + ".");
  }
  if (column == index.threshold_t_column || column == index.threshold_p_column)
    if (const char* fault =
            thresholds_fault(cell_in(index.threshold_t_column), cell_in(index.threshold_p_column)))
      return problem("The study " + std::string(fault) + ".");
  return std::nullopt;
}

void count_names(std::unordered_map<std::string, long>& counts, const Table& table, long column) {
  counts.clear();
  if (column < 0) return;
  for (long row = 0; row < row_count(table); ++row) ++counts[cell(table, row, column)];
}

}  // namespace

void refresh_files(Check_index& index, const std::string& folder) {
  index.files.clear();
  for (const std::string& ending : {peaks_file_of(""), image_file_of("")}) {
    Q_string_list names;
    Q_ls(names, folder.c_str(), "", ending.c_str());
    index.files.insert(names.begin(), names.end());
  }
}

void refresh_names(Check_index& index, const Table& table) {
  index.study_column = column_of(table, "study");
  index.n1_column = column_of(table, "n1");
  index.n2_column = column_of(table, "n2");
  index.threshold_t_column = column_of(table, "threshold_t");
  index.threshold_p_column = column_of(table, "threshold_p");
  index.variable_names.clear();
  for (const std::string& name : table.header.cells) ++index.variable_names[name];
  count_names(index.study_names, table, index.study_column);
}

std::optional<std::string> variable_name_fault(const Check_index& index, const std::string& name,
                                               long allowed) {
  if (auto text = refused_name(index, name, allowed)) return text;
  return unusable_name(name);
}

std::optional<Fault> fault_of(const Check_index& index, const Table& table, long row, long column) {
  if (row == HEADER) return header_fault(index, table, column);
  const std::string& text = cell(table, row, column);
  if (const char* fault = storage_fault(text))
    return problem("The cell " + std::string(fault) +
                   ", which the table file cannot hold in a cell.");
  if (column == column_count(table) - 1)
    if (const std::size_t cells = cells_of_long_line(table, row))
      return problem(Q_format("The line has %zu cells, but the table has %li variables.", cells,
                              column_count(table))
                         .str());
  if (column == index.study_column) return study_name_fault(index, text);
  return value_fault_of(index, table, row, column);
}

std::vector<Cell_place> all_faults(const Check_index& index, const Table& table) {
  std::vector<Cell_place> places;
  for (long row = HEADER; row < row_count(table); ++row)
    for (long column = 0; column < column_count(table); ++column)
      if (fault_of(index, table, row, column)) places.push_back({row, column});
  return places;
}

}  // namespace kvo::edit
