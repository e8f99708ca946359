#include "engine/formats/foreign_file.h"

#include "engine/base/refusal.h"
#include "engine/formats/foreign_text.h"
#include "engine/formats/nimads.h"
#include "engine/formats/sleuth.h"
#include "util/text.h"

namespace kvo::formats {

namespace {

bool ends_so(const std::string& path, std::string_view ending) {
  if (path.size() <= ending.size()) return false;
  return bare_word(std::string_view(path).substr(path.size() - ending.size() + 1)) ==
             ending.substr(1) &&
         path[path.size() - ending.size()] == '.';
}

/// Tables are also called ".txt".
bool is_table(FileKind kind, const std::string& text) {
  if (kind == FileKind::nimads || kind == FileKind::bundle) return false;
  return kind != FileKind::sleuth || !Q_stripped(text).starts_with("//");
}

ForeignStudies studies_in(const std::string& path, FileKind kind, const std::string& text,
                          const std::vector<Role>& roles) {
  if (is_table(kind, text)) return table_studies(path, text, roles);
  return kind == FileKind::nimads ? nimads_studies(path, text) : sleuth_studies(path, text);
}

}  // namespace

FileKind file_kind(const std::string& path) {
  const std::pair<std::string_view, FileKind> kinds[] = {{".csv", FileKind::comma_table},
                                                         {".tsv", FileKind::tab_table},
                                                         {".txt", FileKind::sleuth},
                                                         {".json", FileKind::nimads},
                                                         {".zip", FileKind::bundle}};
  for (const auto& [ending, kind] : kinds)
    if (ends_so(path, ending)) return kind;
  throw Refusal("'" + path +
                "' is of no known kind: .csv and .tsv are tables with one peak a line, .txt lists "
                "of foci, .json study sets (NIMADS), and .zip bundles of a meta-analysis.");
}

NewStudies read_foreign(const std::string& path, Space space, const std::vector<Role>& roles) {
  const FileKind kind = file_kind(path);
  const ForeignText file = read_foreign_text(path);
  ForeignStudies studies = studies_in(path, kind, file.text, roles);
  if (file.latin1) studies.remarks.emplace_back("The file is no UTF-8 and was read as Latin-1.");
  return new_studies(std::move(studies), path, space);
}

std::optional<std::string> text_of_table(const std::string& path) {
  const FileKind kind = file_kind(path);
  if (kind == FileKind::bundle || kind == FileKind::nimads) return std::nullopt;
  std::string text = read_foreign_text(path).text;
  if (!is_table(kind, text)) return std::nullopt;
  return text;
}

std::string foreign_text_of(const std::vector<NewStudy>& studies, FileKind kind) {
  if (kind == FileKind::sleuth) return sleuth_text(studies);
  if (kind == FileKind::nimads) return nimads_text(studies);
  return table_text(studies, kind == FileKind::tab_table ? '\t' : ',');
}

}  // namespace kvo::formats
