#include "engine/formats/peaks_table.h"

#include <algorithm>
#include <array>
#include <map>
#include <unordered_map>
#include <utility>

#include "engine/base/csv.h"
#include "engine/base/refusal.h"
#include "engine/base/text_file.h"
#include "engine/formats/delimited.h"
#include "engine/formats/foreign_text.h"
#include "engine/studies/study_rules.h"
#include "util/text.h"

namespace kvo::formats {

namespace {

struct RoleWords {
  Role role;
  std::array<std::string_view, 9> words;  ///< as bare_word() returns them
};
constexpr RoleWords role_words[] = {
    {Role::study,
     {"study", "studyname", "studyid", "author", "authors", "paper", "experiment", "firstauthor",
      "name"}},
    {Role::n1,
     {"n1", "n", "subjects", "samplesize", "participants", "nsubjects", "npatients", "patientsn",
      "sample"}},
    {Role::n2, {"n2", "controls", "ncontrols", "controlsn", "samplesize2"}},
    {Role::x, {"x", "xmm", "mnix", "xmni", "xcoordinate", "coordx", "talx", "xtal", "peakx"}},
    {Role::y, {"y", "ymm", "mniy", "ymni", "ycoordinate", "coordy", "taly", "ytal", "peaky"}},
    {Role::z, {"z", "zmm", "mniz", "zmni", "zcoordinate", "coordz", "talz", "ztal", "peakz"}},
    {Role::t_value, {"t", "tvalue", "tscore", "tstat", "tstatistic", "height", "peakt", "tmax"}},
    {Role::z_value,
     {"zvalue", "zscore", "zstat", "zstatistic", "peakzscore", "zmax", "equivz", "ze",
      "equivalentz"}},
    {Role::p_value, {"p", "pvalue", "puncorrected", "puncorr", "punc"}},
    {Role::g_value, {"g", "hedgesg"}},
    {Role::sign, {"sign", "direction"}},
    {Role::value, {"value", "statistic", "stat", "peakvalue"}},
    {Role::kind, {"valuekind", "kind", "statistictype", "stattype", "valuetype"}},
    {Role::space, {"space", "coordinatespace", "coordspace", "template", "stereotaxicspace"}},
    {Role::note,
     {"note", "region", "label", "area", "anatomicallabel", "structure", "comment", "location"}},
};

/// A meaning that a column's name may have, and how far down the list of names for it.
struct RoleMatch {
  Role role;
  std::size_t rank;
};

std::optional<RoleMatch> match_of(const std::string& word) {
  if (word.empty()) return std::nullopt;
  for (const RoleWords& known : role_words) {
    const auto found = std::find(known.words.begin(), known.words.end(), word);
    if (found != known.words.end())
      return RoleMatch{known.role, std::size_t(found - known.words.begin())};
  }
  return std::nullopt;
}

struct TableReader {
  const std::string& path;
  Delimited table;
  std::vector<Role> roles;
  ForeignStudies read;
  std::unordered_map<std::string, std::size_t> study_of_name;
  std::vector<bool> varies;  ///< the columns whose values differ within a study

  [[noreturn]] void refuse(const DelimitedRow& row, const std::string& what) const {
    throw Refusal(at_line(path, row.line) + what + ".");
  }

  [[nodiscard]] std::string cell(const DelimitedRow& row, Role role) const {
    for (std::size_t c = 0; c < roles.size() && c < row.cells.size(); ++c)
      if (roles[c] == role && !row.cells[c].empty()) return row.cells[c];
    return "";
  }
  [[nodiscard]] std::string number(const DelimitedRow& row, Role role) const {
    return plain_number(cell(row, role), table.separator != ',');
  }

  void check_columns() const {
    const auto& names = table.rows[0].cells;
    if (const std::vector<std::string> missing = missing_roles(roles); !missing.empty())
      refuse(table.rows[0], "there is no column '" + missing.front() +
                                "'; the columns are: " + listed_names(names));
  }
  static std::string listed_names(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names) {
      if (text.size() > 300) return text + ", ...";
      text += (text.empty() ? "" : ", ") + name;
    }
    return text;
  }

  ForeignStudy& study(const DelimitedRow& row, const std::string& name) {
    const auto [found, is_new] = study_of_name.try_emplace(name, read.studies.size());
    if (!is_new) return read.studies[found->second];
    ForeignStudy& study = read.studies.emplace_back();
    study.name = name;
    study.place = "line " + std::to_string(row.line);
    return study;
  }

  void read_values(const DelimitedRow& row, ForeignStudy& study, bool is_new) {
    std::size_t at = 0;
    for (std::size_t c = 0; c < roles.size(); ++c) {
      const Role role = roles[c];
      if (role != Role::n1 && role != Role::n2 && role != Role::variable) continue;
      std::string text = c < row.cells.size() ? row.cells[c] : "";
      if (role != Role::variable) text = plain_number(text, table.separator != ',');
      if (is_new)
        study.values.emplace_back(role == Role::n1   ? "n1"
                                  : role == Role::n2 ? "n2"
                                                     : table.rows[0].cells[c],
                                  std::move(text));
      else if (std::string& before = study.values[at].second; before.empty())
        before = text;
      else if (!text.empty() && text != before)
        tell_difference(row, c, study);
      ++at;
    }
  }

  void tell_difference(const DelimitedRow& row, std::size_t column, const ForeignStudy& study) {
    if (roles[column] != Role::variable)
      refuse(row, "study '" + study.name + "' has another " + table.rows[0].cells[column] +
                      " than in " + study.place);
    varies[column] = true;
  }

  void read_space(const DelimitedRow& row, ForeignStudy& study) const {
    const std::string text = cell(row, Role::space);
    if (text.empty()) return;
    const Space space = space_called(text);
    if (space == Space::unknown)
      refuse(row, "the space '" + text + "' is neither MNI nor Talairach");
    if (study.space != Space::unknown && study.space != space)
      refuse(row, "study '" + study.name + "' has coordinates of two spaces");
    study.space = space;
  }

  void read_height(const DelimitedRow& row, ForeignPeak& peak) const {
    if (const auto kind = value_kind_named(bare_word(cell(row, Role::kind)))) {
      peak.kind = *kind;
      peak.value = number(row, Role::value);
      return;
    }
    const std::pair<Role, ValueKind> kinds[] = {
        {Role::t_value, ValueKind::t}, {Role::z_value, ValueKind::z},
        {Role::p_value, ValueKind::p}, {Role::g_value, ValueKind::g},
        {Role::value, ValueKind::t},   {Role::sign, ValueKind::sign}};
    for (const auto& [role, kind] : kinds) {
      peak.value = number(row, role);
      peak.kind = kind;
      if (!peak.value.empty()) break;
    }
    const bool falls = number(row, Role::sign).starts_with('-');
    if (peak.kind == ValueKind::p && falls && !peak.value.starts_with('-'))
      peak.value.insert(0, "-");
  }

  void read_row(const DelimitedRow& row) {
    for (std::size_t c = roles.size(); c < row.cells.size(); ++c)
      if (!row.cells[c].empty())
        refuse(row, "there are " + std::to_string(row.cells.size()) +
                        " cells, but the header has " + std::to_string(roles.size()) + " columns");
    const std::string name = cell(row, Role::study);
    if (name.empty()) refuse(row, "the study has no name");
    const std::size_t before = read.studies.size();
    ForeignStudy& in = study(row, name);
    read_values(row, in, read.studies.size() > before);
    read_space(row, in);
    ForeignPeak peak;
    peak.at = {number(row, Role::x), number(row, Role::y), number(row, Role::z)};
    const auto given = std::count_if(peak.at.begin(), peak.at.end(),
                                     [](const std::string& mm) { return !mm.empty(); });
    if (given == 0) return;
    if (given < 3) refuse(row, "a coordinate is missing");
    read_height(row, peak);
    peak.note = cell(row, Role::note);
    peak.line = row.line;
    in.peaks.push_back(std::move(peak));
  }

  /// Variables belong to studies; there is no place for what differs between the peaks of one.
  void drop_varying() {
    std::vector<std::string> dropped;
    std::vector<bool> kept;
    for (std::size_t c = 0; c < roles.size(); ++c) {
      if (roles[c] != Role::n1 && roles[c] != Role::n2 && roles[c] != Role::variable) continue;
      kept.push_back(!varies[c] && !table.rows[0].cells[c].empty());
      if (varies[c]) dropped.push_back(table.rows[0].cells[c]);
    }
    for (ForeignStudy& study : read.studies) {
      std::size_t value = 0;
      std::erase_if(study.values, [&](const NamedText&) { return !kept[value++]; });
    }
    if (!dropped.empty())
      read.remarks.push_back(
          "Left out, as the values differ within a study: " + listed_names(dropped) + ".");
  }
};

/// The cells for a study that the table repeats in each of its lines, in the order of the columns.
std::vector<std::string> study_cells(const NewStudy& study,
                                     const std::vector<std::string>& columns) {
  std::vector<std::string> cells = {original_name(study)};
  for (const std::string& column : columns) {
    const auto found = std::find_if(study.values.begin(), study.values.end(),
                                    [&](const NamedText& value) { return value.first == column; });
    cells.push_back(found == study.values.end() || is_missing(found->second) ? "" : found->second);
  }
  return cells;
}

std::vector<std::string> columns_of(const std::vector<NewStudy>& studies) {
  std::vector<std::string> columns;
  for (const NewStudy& study : studies)
    for (const auto& [name, value] : study.values)
      if (std::find(columns.begin(), columns.end(), name) == columns.end()) columns.push_back(name);
  return columns;
}

std::string line_of(std::vector<std::string> cells, char separator) {
  if (separator == ',') return csv_line(cells);
  std::string line;
  for (const std::string& cell : cells)
    line += (&cell == cells.data() ? "" : "\t") + one_line(cell);
  return line + "\n";
}

}  // namespace

std::vector<Role> guessed_roles(const std::vector<std::string>& names) {
  std::vector<Role> roles(names.size(), Role::variable);
  std::map<Role, std::pair<std::size_t, std::size_t>> best;  // rank and column
  for (std::size_t c = 0; c < names.size(); ++c) {
    const std::optional<RoleMatch> match = match_of(bare_word(names[c]));
    if (!match) continue;
    if (match->role == Role::note) {
      roles[c] = Role::note;
      continue;
    }
    const auto [place, is_new] = best.try_emplace(match->role, match->rank, c);
    // "x, y, z, z": the second is the height.
    if (!is_new && match->role == Role::z && match->rank == place->second.first)
      best.try_emplace(Role::z_value, match->rank, c);
    else if (match->rank < place->second.first)
      place->second = {match->rank, c};
  }
  for (const auto& [role, where] : best) roles[where.second] = role;
  return roles;
}

const char* role_name(Role role) {
  constexpr std::array<const char*, role_count> names = {"study",
                                                         "n1: sample size",
                                                         "n2: size of the second sample",
                                                         "x",
                                                         "y",
                                                         "z",
                                                         "t value",
                                                         "z value",
                                                         "p value",
                                                         "Hedges' g",
                                                         "sign",
                                                         "value, of the kind beside it",
                                                         "kind of value",
                                                         "space",
                                                         "note of a peak",
                                                         "variable of the study",
                                                         "(left out)"};
  return names.at(std::size_t(role));
}

std::vector<std::string> missing_roles(const std::vector<Role>& roles) {
  std::vector<std::string> missing;
  for (const Role role : {Role::study, Role::x, Role::y, Role::z})
    if (std::find(roles.begin(), roles.end(), role) == roles.end())
      missing.emplace_back(role_name(role));
  return missing;
}

ForeignStudies table_studies(const std::string& path, std::string_view text,
                             std::vector<Role> roles) {
  TableReader reader{path, delimited_of(path, text), std::move(roles), {}, {}, {}};
  std::vector<DelimitedRow>& rows = reader.table.rows;
  if (rows.empty()) throw Refusal("'" + path + "' is empty.");
  if (reader.roles.empty()) reader.roles = guessed_roles(rows[0].cells);
  reader.varies.assign(reader.roles.size(), false);
  reader.check_columns();
  for (std::size_t row = 1; row < rows.size(); ++row) reader.read_row(rows[row]);
  reader.drop_varying();
  return std::move(reader.read);
}

ForeignStudies table_studies(const std::string& path, std::string_view text) {
  return table_studies(path, text, {});
}

std::string table_text(const std::vector<NewStudy>& studies, char separator) {
  const std::vector<std::string> columns = columns_of(studies);
  std::vector<std::string> header = {"study"};
  header.insert(header.end(), columns.begin(), columns.end());
  for (const char* name : {"space", "x", "y", "z", "value", "value_kind", "note"})
    header.emplace_back(name);
  std::string text = line_of(header, separator);
  for (const NewStudy& study : studies) {
    const std::vector<std::string> of_study = study_cells(study, columns);
    const auto add = [&](std::vector<std::string> rest) {
      std::vector<std::string> cells = of_study;
      cells.emplace_back(name_of(study.peaks.space));
      cells.insert(cells.end(), rest.begin(), rest.end());
      text += line_of(std::move(cells), separator);
    };
    if (study.peaks.peaks.empty()) add({"", "", "", "", "", ""});
    for (const WrittenPeak& peak : study.peaks.peaks) {
      const WrittenValue value = written_value(peak, sample_of(study));
      add({peak.at[0], peak.at[1], peak.at[2], value.text, name_of(value.kind), value.note});
    }
  }
  return text;
}

}  // namespace kvo::formats
