#include "engine/studies/study.h"

#include <algorithm>
#include <span>
#include <unordered_map>

#include "engine/base/progress.h"
#include "engine/base/refusal.h"
#include "engine/base/text_file.h"
#include "engine/studies/study_rules.h"
#include "util/text.h"
#include "workspace/files/file_names.h"
#include "workspace/files/text_table.h"

namespace kvo::studies {

namespace {

[[noreturn]] void refuse(std::size_t line, const std::string& what) {
  throw Refusal(at_line(KVO_TABLE_FILE, line) + what + ".");
}

std::vector<std::string> cells_of(std::string_view line) {
  std::vector<std::string> cells;
  Q_line_cells left(line);
  while (const auto cell = left.next()) cells.emplace_back(*cell);
  return cells;
}

void check_header(const StudyTable& table, std::size_t line) {
  for (const char* needed : {"study", "n1"})
    if (!table.column(needed)) refuse(line, "there is no column '" + std::string(needed) + "'");
  std::vector<std::string> names = table.columns;
  std::sort(names.begin(), names.end());
  const auto twice =
      std::adjacent_find(names.begin(), names.end(),
                         [](const auto& a, const auto& b) { return a == b && !a.empty(); });
  if (twice != names.end()) refuse(line, "there are two columns '" + *twice + "'");
  for (const std::string& name : table.columns)
    if (const char* fault = cell_fault(name)) refuse(line, "a cell " + std::string(fault));
}

/// The cells of a row, padded to the header's length.
std::vector<std::string> row_of(std::string_view text, std::size_t line, std::size_t columns) {
  std::vector<std::string> cells = cells_of(text);
  const auto beyond = cells.begin() + std::ptrdiff_t(std::min(columns, cells.size()));
  if (std::any_of(beyond, cells.end(), [](const std::string& cell) { return !cell.empty(); }))
    refuse(line, "there are " + std::to_string(cells.size()) + " cells, but the header has " +
                     std::to_string(columns) +
                     " columns (each blank, tab or comma begins a new cell)");
  cells.resize(columns);
  for (std::string& cell : cells) {
    if (const char* fault = cell_fault(cell)) refuse(line, "a cell " + std::string(fault));
    if (cell.empty()) cell = missing_value;
  }
  return cells;
}

/// "" when there is no such column.
std::string_view cell_of(const StudyTable& table, const Study& study, const char* name) {
  const std::optional<std::size_t> column = table.column(name);
  return column ? std::string_view(study.values[*column]) : "";
}

/// The value of a column with a predefined meaning; nothing when the value or the column is
/// missing.
std::optional<double> checked_value(const StudyTable& table, const Study& study, const char* name) {
  const std::optional<std::size_t> column = table.column(name);
  if (!column) return std::nullopt;
  const std::string& text = study.values[*column];
  if (const auto fault =
          value_fault(name, text, {cell_of(table, study, "n1"), cell_of(table, study, "n2")}))
    refuse(study.line,
           std::string(name) + " of study '" + study.name + "' is '" + text + "', " + *fault);
  return number_of(text);
}

Study study_of(const StudyTable& table, std::vector<std::string> values, std::size_t line) {
  Study study;
  study.name = values[*table.column("study")];
  study.line = line;
  study.values = std::move(values);
  if (is_missing(study.name)) refuse(line, "the study has no name");
  if (const char* fault = Q_name_fault(study.name); fault != nullptr)
    refuse(line, "the study's name '" + study.name + "' " + fault);
  study.sample.n1 = int(checked_value(table, study, "n1").value());
  study.sample.n2 = int(checked_value(table, study, "n2").value_or(0));
  study.threshold_t = checked_value(table, study, "threshold_t");
  study.threshold_p = checked_value(table, study, "threshold_p");
  if (const char* fault = thresholds_fault(cell_of(table, study, "threshold_t"),
                                           cell_of(table, study, "threshold_p")))
    refuse(line, "study '" + study.name + "' " + fault);
  if (const auto peaks = checked_value(table, study, "peaks_per_cluster"))
    study.peaks_per_cluster = int(*peaks);
  study.peak_distance = checked_value(table, study, "peak_distance");
  study.cluster_extent = checked_value(table, study, "cluster_extent");
  return study;
}

}  // namespace

Threshold threshold_of(const Study& study) {
  if (study.threshold_t) return {*study.threshold_t, false};
  return {t_of_p(study.threshold_p.value_or(assumed_threshold_p), study.sample),
          !study.threshold_p};
}

std::optional<std::size_t> StudyTable::column(std::string_view name) const {
  const auto found = std::find(columns.begin(), columns.end(), name);
  if (found == columns.end()) return std::nullopt;
  return std::size_t(found - columns.begin());
}

StudyTable read_study_table() {
  const std::string text = read_text(KVO_TABLE_FILE);
  const std::vector<TextLine> lines = filled_lines(text);
  StudyTable table;
  if (lines.size() < 2) throw Refusal("'" + std::string(KVO_TABLE_FILE) + "' holds no studies.");
  table.columns = cells_of(lines[0].text);
  check_header(table, lines[0].number);
  // Short rows are padded to the header's length, so a small file could ask for any amount of
  // memory.
  if (lines.size() > Q_TABLE_MAX_CELLS / table.columns.size())
    throw Refusal("'" + std::string(KVO_TABLE_FILE) +
                  "' is too large: " + std::to_string(lines.size() - 1) + " studies with " +
                  std::to_string(table.columns.size()) + " columns.");
  std::unordered_map<std::string, std::size_t> line_of_name;
  for (const TextLine& line : std::span(lines).subspan(1)) {
    table.studies.push_back(
        study_of(table, row_of(line.text, line.number, table.columns.size()), line.number));
    const std::string& name = table.studies.back().name;
    if (const auto [first, is_new] = line_of_name.try_emplace(name, line.number); !is_new)
      refuse(line.number,
             "there is already a study '" + name + "' in line " + std::to_string(first->second));
  }
  return table;
}

std::size_t required_column(const StudyTable& table, const std::string& name) {
  if (const std::optional<std::size_t> column = table.column(name)) return *column;
  throw Refusal("'" + std::string(KVO_TABLE_FILE) + "' has no variable '" + name + "'.");
}

std::optional<double> study_number(const StudyTable& table, const Study& study,
                                   std::size_t column) {
  const std::string& text = study.values[column];
  if (text == missing_value) return std::nullopt;
  const std::optional<double> number = number_of(text);
  if (!number)
    refuse(study.line, table.columns[column] + " of study '" + study.name + "' is '" + text +
                           "', which is no number");
  return number;
}

std::vector<std::size_t> filtered_studies(const StudyTable& table, const std::string& filter) {
  std::vector<std::size_t> chosen;
  const std::size_t column = filter.empty() ? 0 : required_column(table, filter);
  for (std::size_t i = 0; i < table.studies.size(); ++i)
    if (filter.empty() || study_number(table, table.studies[i], column).value_or(0) != 0)
      chosen.push_back(i);
  if (chosen.empty()) throw Refusal("No study has '" + filter + "' = 1.");
  return chosen;
}

void say_filtered(std::size_t left_out, std::size_t all) {
  if (left_out > 0)
    say("The filter leaves out " + std::to_string(left_out) + " of " + std::to_string(all) +
        " studies");
}

}  // namespace kvo::studies
