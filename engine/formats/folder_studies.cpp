#include "engine/formats/folder_studies.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <unordered_map>

#include "engine/base/exists.h"
#include "engine/base/outputs.h"
#include "engine/base/refusal.h"
#include "engine/base/text_file.h"
#include "engine/studies/study.h"
#include "engine/studies/study_rules.h"
#include "engine/studies/study_source.h"
#include "util/text.h"
#include "workspace/files/file_names.h"
#include "workspace/files/text_table.h"

namespace kvo::formats {

namespace {

/// The study table as rows of cells, the first with the columns' names. It may be a table that no
/// analysis would accept yet.
struct FolderTable {
  std::string text;
  std::vector<std::vector<std::string>> rows;
  std::size_t names = 0;  ///< the column with the names

  /// Index of a column, which is added when missing.
  std::size_t column(const std::string& name) {
    const auto found = std::find(rows[0].begin(), rows[0].end(), name);
    if (found != rows[0].end()) return std::size_t(found - rows[0].begin());
    rows[0].push_back(name);
    return rows[0].size() - 1;
  }
};

FolderTable read_folder_table() {
  FolderTable table;
  if (entry_exists(KVO_TABLE_FILE)) table.text = read_text(KVO_TABLE_FILE);
  for (const TextLine& line : filled_lines(table.text)) {
    table.rows.push_back(Q_table_split_line(line.text));
    while (table.rows.size() > 1 && table.rows.back().size() > table.rows[0].size() &&
           table.rows.back().back().empty())
      table.rows.back().pop_back();
    if (table.rows.back().size() > table.rows[0].size())
      throw Refusal(at_line(KVO_TABLE_FILE, line.number) +
                    "there are more cells than the header has columns.");
  }
  if (table.rows.empty()) table.rows.push_back({"study", "n1"});
  const auto& names = table.rows[0];
  if (std::find(names.begin(), names.end(), "study") == names.end())
    throw Refusal(at_line(KVO_TABLE_FILE, 1) + "there is no column 'study'.");
  table.names = table.column("study");
  return table;
}

/// Whether the folder already has the study, with the same content.
bool same_study(FolderTable& table, const std::vector<std::string>& row, const NewStudy& study) {
  const std::string file = peaks_file_of(study.name);
  if (!entry_exists(file) || read_text(file) != peaks_text(study.peaks)) return false;
  return std::all_of(study.values.begin(), study.values.end(), [&](const NamedText& value) {
    const auto column = std::find(table.rows[0].begin(), table.rows[0].end(), value.first);
    const auto at = std::size_t(column - table.rows[0].begin());
    const std::string_view cell = at < row.size() ? std::string_view(row[at]) : "";
    return cell == value.second || (is_missing(cell) && is_missing(value.second));
  });
}

void add_row(FolderTable& table, const NewStudy& study) {
  std::vector<std::string> row(table.rows[0].size(), missing_value);
  const auto set = [&](std::size_t column, const std::string& value) {
    if (row.size() <= column) row.resize(column + 1, missing_value);
    row[column] = value;
  };
  set(table.names, study.name);
  for (const auto& [column, value] : study.values)
    if (const std::size_t at = table.column(column); at != table.names) set(at, value);
  table.rows.push_back(std::move(row));
}

/// The lines of old studies stay as they are when only new lines are added.
std::string text_of_table(const FolderTable& table, std::size_t old_rows, bool same_columns) {
  std::string text = same_columns ? table.text : "";
  if (!text.empty() && !text.ends_with('\n')) text += '\n';
  const bool commas = same_columns && old_rows > 0 && text.find('\t') == std::string::npos &&
                      text.find(',') != std::string::npos;
  for (std::size_t r = same_columns ? old_rows : 0; r < table.rows.size(); ++r)
    for (std::size_t c = 0; c < table.rows[0].size(); ++c) {
      const std::string_view cell =
          c < table.rows[r].size() ? std::string_view(table.rows[r][c]) : "";
      if (c > 0) text += commas ? ',' : '\t';
      text += cell.empty() ? missing_value : cell;
      if (c + 1 == table.rows[0].size()) text += '\n';
    }
  return text;
}

/// Without a flush: there may be thousands of files, and each flush would wait for the disk.
void write_staged(Outputs& outputs, const std::string& name, const std::string& text) {
  std::ofstream file(outputs.path_of(name), std::ios::binary);
  file << text;
  file.close();
  if (!file) throw Refusal("'" + name + "' cannot be written: " + std::strerror(errno) + ".");
}

}  // namespace

ImportPlan import_plan(const NewStudies& studies) {
  FolderTable table = read_folder_table();
  const std::size_t old_rows = table.text.empty() ? 0 : table.rows.size(),
                    old_columns = table.rows[0].size();
  std::unordered_map<std::string, std::size_t> row_of_name;
  for (std::size_t r = 1; r < table.rows.size(); ++r)
    if (table.names < table.rows[r].size()) row_of_name.try_emplace(table.rows[r][table.names], r);
  ImportPlan plan;
  for (const NewStudy& study : studies.studies) {
    const std::string peaks = peaks_file_of(study.name), image = image_file_of(study.name);
    if (const auto found = row_of_name.find(study.name); found != row_of_name.end()) {
      if (!same_study(table, table.rows[found->second], study))
        throw Refusal(
            "The folder has a study '" + study.name +
            "' already, with other values or peaks. Please rename or remove one of them.");
      ++plan.known;
      continue;
    }
    for (const std::string& file : {peaks, image})
      if (entry_exists(file))
        throw Refusal("There is already a file '" + file + "' where the data of study '" +
                      study.name + "' would be. Please rename or remove it.");
    add_row(table, study);
    plan.added.push_back(&study);
  }
  if (plan.added.empty()) return plan;
  plan.table = text_of_table(table, old_rows, old_rows > 0 && old_columns == table.rows[0].size());
  for (const TextLine& line : filled_lines(*plan.table))
    if (line.text.size() > Q_STRING_MAX)
      throw Refusal(at_line(KVO_TABLE_FILE, line.number) + "would be longer than " +
                    std::to_string(Q_STRING_MAX) + " bytes.");
  return plan;
}

void write_import(const ImportPlan& plan) {
  if (!plan.table) return;
  Outputs outputs;
  outputs.write_text(KVO_TABLE_FILE, *plan.table);
  for (const NewStudy* study : plan.added)
    write_staged(outputs, peaks_file_of(study->name), peaks_text(study->peaks));
  outputs.commit();
}

ExportedStudies folder_studies() {
  const StudyTable table = read_study_table();
  ExportedStudies result;
  for (const Study& study : table.studies) {
    const StudySource source = study_source(study);
    if (source.is_image) {
      result.with_images.push_back(study.name);
      continue;
    }
    NewStudy& one = result.studies.emplace_back();
    one.name = study.name;
    for (std::size_t c = 0; c < table.columns.size(); ++c)
      if (table.columns[c] != "study" && !table.columns[c].empty())
        one.values.emplace_back(table.columns[c], study.values[c]);
    one.peaks = peaks_list_of(source.file, read_text(source.file));
  }
  return result;
}

}  // namespace kvo::formats
