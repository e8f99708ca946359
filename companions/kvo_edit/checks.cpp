#include "companions/kvo_edit/checks.h"

#include "companions/common/text_file.h"
#include "companions/kvo_edit/table_file.h"
#include "util/files.h"
#include "util/q_string.h"
#include "util/text.h"
#include "workspace/study_table.h"

namespace {

constexpr const char* PEAKS_SUFFIX = ".peaks.txt";
constexpr const char* IMAGE_SUFFIX = ".nii.gz";

Fault problem(std::string text) {
  return {Severity::problem, std::move(text)};
}

bool is_doubled(const std::unordered_map<std::string, long>& names, const std::string& name) {
  const auto found = names.find(name);
  return found != names.end() && found->second > 1;
}

std::optional<Fault> header_fault(const Check_index& index, const Table& table, long column) {
  const std::string& name = cell(table, HEADER, column);
  if (auto text = variable_name_fault(index, name, 1)) return problem(*std::move(text));
  if (index.study_column < 0 && column == 0)
    return problem("No variable is called 'study', the one with the names of the studies.");
  if (!index.has_n1 && column == index.study_column)
    return Fault{Severity::note, "No variable is called 'n1', the one with the sample sizes."};
  return std::nullopt;
}

std::optional<Fault> study_name_fault(const Check_index& index, const std::string& name) {
  if (is_missing(name)) return problem("The study has no name.");
  if (const char* fault = Q_name_fault(name))
    return problem("The name of the study " + std::string(fault) + ".");
  if (is_doubled(index.study_names, name)) return problem("Another study has the same name.");
  if (index.files.contains(name + PEAKS_SUFFIX) || index.files.contains(name + IMAGE_SUFFIX))
    return std::nullopt;
  return Fault{Severity::note, Q_format("The folder has no peaks file '%s%s' and no image '%s%s'.",
                                        name.c_str(), PEAKS_SUFFIX, name.c_str(), IMAGE_SUFFIX)
                                   .str()};
}

std::optional<Fault> sample_size_fault(const std::string& variable, const std::string& text) {
  if (is_missing(text)) {
    // A study with one sample has no second size.
    if (variable == "n2") return std::nullopt;
    return problem("The sample size is missing.");
  }
  const std::optional<double> size = number_of(text);
  if (!size) return problem("The sample size is not a number.");
  if (*size < 1) return problem("The sample size is less than 1.");
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
  for (const char* suffix : {PEAKS_SUFFIX, IMAGE_SUFFIX}) {
    Q_string_list names;
    Q_ls(names, folder.c_str(), "", suffix);
    index.files.insert(names.begin(), names.end());
  }
}

void refresh_names(Check_index& index, const Table& table) {
  index.study_column = column_of(table, "study");
  index.has_n1 = column_of(table, "n1") >= 0;
  index.variable_names.clear();
  for (const std::string& name : table.header.cells) ++index.variable_names[name];
  count_names(index.study_names, table, index.study_column);
}

std::optional<std::string> variable_name_fault(const Check_index& index, const std::string& name,
                                               long allowed) {
  if (is_missing(name)) return "The variable has no name.";
  if (const char* fault = storage_fault(name))
    return "The name " + std::string(fault) + ", which the table file cannot hold in a name.";
  if (name.find_first_of("+=\"'") != std::string::npos)
    return "The name holds a quote, '=' or '+', which commands cannot hold in a name.";
  if (name == KVO_JACKKNIFE_VARIABLE)
    return "This name is kept for jackknife analyses, which add and remove such a variable.";
  if (name == "(none)") return "This name stands for no variable where one is chosen.";
  const auto found = index.variable_names.find(name);
  if (found != index.variable_names.end() && found->second > allowed)
    return "Another variable has the same name.";
  return std::nullopt;
}

std::optional<Fault> fault_of(const Check_index& index, const Table& table, long row, long column) {
  if (row == HEADER) return header_fault(index, table, column);
  const std::string& text = cell(table, row, column);
  if (const char* fault = storage_fault(text))
    return problem("The cell " + std::string(fault) +
                   ", which the table file cannot hold in a cell.");
  if (column == index.study_column) return study_name_fault(index, text);
  const std::string& variable = cell(table, HEADER, column);
  if (variable == "n1" || variable == "n2") return sample_size_fault(variable, text);
  return std::nullopt;
}

std::vector<Cell_place> all_faults(const Check_index& index, const Table& table) {
  std::vector<Cell_place> places;
  for (long row = HEADER; row < row_count(table); ++row)
    for (long column = 0; column < column_count(table); ++column)
      if (fault_of(index, table, row, column)) places.push_back({row, column});
  return places;
}
