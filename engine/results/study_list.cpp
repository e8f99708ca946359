#include "engine/results/study_list.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <string_view>

#include "engine/studies/study_image.h"
#include "engine/studies/study_peaks.h"
#include "engine/studies/study_rules.h"
#include "util/text.h"

namespace kvo::results {

namespace {

/// More of them would make a page that nobody reads; the table has all.
constexpr std::size_t most_rows = 1000;

/// What identifies a study, in the order of the columns shown.
struct Identity {
  std::string_view name;  ///< of the table's column, in small letters
  HtmlColumn column;
};
const Identity identities[] = {
    {"authors", {"Authors"}},
    {"year", {"Year"}},
    {"title", {"Title"}},
    {"contrast", {"Contrast"}},
    {"doi", {.title = "DOI", .link = HtmlLink::doi}},
    {"pmid", {.title = "PMID", .link = HtmlLink::pmid}},
    {"note", {"Note"}},
    {"notes", {"Notes"}},
};

std::string small_letters(std::string text) {
  for (char& c : text) c = char(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

bool some_have(const StudyTable& table, std::span<const std::size_t> chosen, std::size_t column) {
  return std::any_of(chosen.begin(), chosen.end(),
                     [&](std::size_t s) { return !is_missing(table.studies[s].values[column]); });
}

/// The columns of the table to show, each with how.
struct ShownColumn {
  std::size_t column;
  HtmlColumn shown;
};
std::vector<ShownColumn> shown_columns(const StudyTable& table,
                                       std::span<const std::size_t> chosen) {
  std::vector<ShownColumn> shown;
  for (const Identity& identity : identities)
    for (std::size_t c = 0; c < table.columns.size(); ++c)
      if (small_letters(table.columns[c]) == identity.name && some_have(table, chosen, c))
        shown.push_back({c, identity.column});
  return shown;
}

}  // namespace

std::string sample_text(const Sample& sample) {
  std::string text = std::to_string(sample.n1);
  if (sample.n2 > 0) text += " + " + std::to_string(sample.n2);
  return text;
}

KnownStudy read_known_study(const Study& study, bool has_image) {
  KnownStudy known;
  known.explored = {study.name, sample_text(study.sample), has_image, {}};
  if (has_image) {
    known.talairach = read_space(image_file(study)) == Space::talairach;
    known.data.given = "image";
  } else {
    const StudyPeaks read = read_peaks(study);
    known.talairach = read.talairach;
    known.unknown_heights = read.unknown_heights;
    known.data.given = Q_counted(read.peaks.size(), "peak", "peaks");
    for (const Peak& peak : read.peaks) {
      ExploredPlace place{{}, peak.height_known ? peak.g : std::nan(""), {}};
      for (Eigen::Index axis = 0; axis < 3; ++axis)
        place.mm[std::size_t(axis)] = int(std::lround(peak.mm[axis]));
      known.explored.places.push_back(place);
    }
  }
  known.data.space = known.talairach ? "Talairach" : "MNI";
  return known;
}

HtmlTable study_list(const StudyTable& table, std::span<const std::size_t> chosen,
                     std::span<const StudyData> data) {
  const std::vector<ShownColumn> shown = shown_columns(table, chosen);
  HtmlTable list;
  list.caption = chosen.size() == table.studies.size()
                     ? "All studies of the study table took part."
                     : Q_count_text(chosen.size()) + " of the " +
                           Q_counted(table.studies.size(), "study", "studies") +
                           " of the study table took part.";
  const bool has_spaces = std::any_of(data.begin(), data.end(),
                                      [](const StudyData& each) { return !each.space.empty(); });
  list.columns = {{"Study"}, {"n", true}, {"Data"}};
  if (has_spaces) list.columns.push_back({"Space"});
  for (const ShownColumn& each : shown) list.columns.push_back(each.shown);
  const std::size_t rows = std::min(chosen.size(), most_rows);
  for (std::size_t i = 0; i < rows; ++i) {
    const Study& study = table.studies[chosen[i]];
    HtmlRow row{{study.name, sample_text(study.sample), data[i].given}};
    if (has_spaces) row.cells.push_back(data[i].space);
    for (const ShownColumn& each : shown) {
      const std::string& value = study.values[each.column];
      row.cells.push_back(is_missing(value) ? "" : value);
    }
    list.rows.push_back(std::move(row));
  }
  if (rows < chosen.size())
    list.rows.push_back({{"and " + Q_count_text(chosen.size() - rows) + " more"}});
  return list;
}

}  // namespace kvo::results
