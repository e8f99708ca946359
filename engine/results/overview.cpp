#include "engine/results/overview.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <numeric>
#include <optional>
#include <utility>

#include "engine/base/outputs.h"
#include "engine/base/refusal.h"
#include "engine/base/text_file.h"
#include "engine/base/wording.h"
#include "engine/maps/folder_maps.h"
#include "engine/report/brain_picture.h"
#include "engine/report/html.h"
#include "engine/results/map_facts.h"
#include "engine/results/study_list.h"
#include "engine/studies/study_source.h"
#include "util/text.h"
#include "workspace/files/file_names.h"

namespace kvo::results {

namespace fs = std::filesystem;

namespace {

constexpr const char* page_file = "index.html";
constexpr const char* page_kind = "overview";
constexpr std::string_view page_suffix = ".html";
// A page with more pictures would be slow to open, and to write again with each command.
constexpr std::size_t most_pictures = 12, most_reports = 200;
// Bytes that are read of a report.
constexpr std::size_t with_picture = std::size_t{1} << 20, without_picture = std::size_t{1} << 14;
constexpr double near_mm = 6;

/// The studies of the table, those whose files cannot be read without what these say.
struct FolderStudies {
  StudyTable table;
  std::vector<StudyData> data;
  std::vector<ExploredStudy> explored;
  std::size_t images = 0, with_peaks = 0, peaks = 0, participants = 0;
};

std::optional<FolderStudies> read_studies() {
  FolderStudies all;
  try {
    all.table = read_study_table();
  } catch (const Refusal&) {
    return std::nullopt;
  }
  for (const Study& study : all.table.studies) {
    all.participants += std::size_t(std::max(0, study.sample.n1) + std::max(0, study.sample.n2));
    try {
      const bool has_image = study_source(study).is_image;
      KnownStudy known = read_known_study(study, has_image);
      ++(has_image ? all.images : all.with_peaks);
      all.peaks += known.explored.places.size();
      all.data.push_back(std::move(known.data));
      all.explored.push_back(std::move(known.explored));
    } catch (const Refusal&) {
      all.data.push_back({"nothing that can be read", ""});
    }
  }
  return all;
}

/// For each voxel how many peaks are near: below 0 where most of them are negative.
std::vector<float> peaks_nearby(std::span<const ExploredStudy> studies) {
  const Grid& grid = mni_grid();
  std::vector<int> positive(grid.voxels()), negative(grid.voxels());
  const int reach = int(near_mm / voxel_mm);
  const auto low = mm_of({0, 0, 0});
  for (const ExploredStudy& study : studies)
    for (const ExploredPlace& place : study.places) {
      const auto along = [&](std::size_t axis) {
        return int(std::lround(double(place.mm[axis] - low[axis]) / voxel_mm));
      };
      for (int k = along(2) - reach; k <= along(2) + reach; ++k)
        for (int j = along(1) - reach; j <= along(1) + reach; ++j)
          for (int i = along(0) - reach; i <= along(0) + reach; ++i) {
            if (!grid.holds(i, j, k)) continue;
            const auto mm = mm_of({i, j, k});
            if (std::hypot(mm[0] - place.mm[0], mm[1] - place.mm[1], mm[2] - place.mm[2]) <=
                near_mm)
              ++(place.g < 0 ? negative : positive)[grid.index(i, j, k)];
          }
    }
  std::vector<float> map(grid.voxels());
  std::transform(positive.begin(), positive.end(), negative.begin(), map.begin(),
                 [](int p, int n) { return n > p ? -float(p + n) : float(p + n); });
  return map;
}

void add_studies(HtmlReport& page, const FolderStudies& all) {
  page.heading("Studies");
  page.facts(
      std::vector<Fact>{{"Studies", Q_count_text(all.table.studies.size()) + ", with " +
                                        Q_counted(all.participants, "participant", "participants")},
                        {"With peaks", Q_count_text(all.with_peaks) + ", with " +
                                           Q_counted(all.peaks, "peak", "peaks") + " in all"},
                        {"With images", Q_count_text(all.images)}});
  if (all.peaks > 0) {
    page.heading("Where the peaks lie");
    page.picture(
        glass_brain({peaks_nearby(all.explored), "peaks within 6 mm"}, read_brain_background(), {}),
        "Glass brain: how many peaks of all studies lie within 6 mm, the most along each "
        "line of sight. Left is left (neurological convention).");
  }
  std::vector<std::size_t> every(all.table.studies.size());
  std::iota(every.begin(), every.end(), std::size_t(0));
  HtmlTable list = study_list(all.table, every, all.data);
  list.caption = "The studies of the study table.";
  page.table(list);
}

/// A report of the folder: what its head says, and its first picture.
struct FolderReport {
  std::string file, title, subtitle, picture;
};

/// What stands between two texts, as the page has it; "" when there is no such place.
std::string_view between(std::string_view page, std::string_view before, std::string_view after) {
  const std::size_t begin = page.find(before);
  if (begin == std::string_view::npos) return "";
  const std::size_t from = begin + before.size(), end = page.find(after, from);
  return end == std::string_view::npos ? "" : page.substr(from, end - from);
}

/// So many bytes from the beginning of a page that this system has written; "" of others, and of
/// links.
std::string own_page(const std::string& file, std::size_t bytes) {
  std::error_code ignored;
  if (!fs::is_regular_file(fs::symlink_status(file, ignored))) return "";
  std::string text(bytes, '\0');
  std::ifstream stream(file, std::ios::binary);
  stream.read(text.data(), std::streamsize(text.size()));
  text.resize(std::size_t(std::max<std::streamsize>(0, stream.gcount())));
  return page_generator(text).empty() ? "" : text;
}

/// The reports of the folder, the newest first.
std::vector<FolderReport> reports_of_folder() {
  std::vector<std::pair<fs::file_time_type, std::string>> files;
  std::error_code ignored;
  for (const auto& entry : fs::directory_iterator(".", ignored))
    if (std::string file = entry.path().filename();
        file.ends_with(page_suffix) && file != page_file)
      files.emplace_back(fs::last_write_time(entry.path(), ignored), std::move(file));
  std::sort(files.rbegin(), files.rend());
  std::vector<FolderReport> reports;
  for (const auto& [time, file] : files) {
    if (reports.size() == most_reports) break;
    const std::string page =
        own_page(file, reports.size() < most_pictures ? with_picture : without_picture);
    if (page.empty()) continue;
    reports.push_back({file, html_unescaped(between(page, "<title>", "</title>")),
                       html_unescaped(between(page, "<p class=\"subtitle\">", "</p>")),
                       std::string(between(page, "<img src=\"data:image/png;base64,", "\""))});
  }
  return reports;
}

void add_reports(HtmlReport& page, std::span<const FolderReport> reports) {
  if (reports.empty()) return;
  page.heading("Reports");
  std::vector<HtmlCard> cards;
  for (const FolderReport& report : reports)
    cards.push_back({report.file, report.title, report.subtitle, report.picture});
  page.cards(cards);
}

/// The analyses of the folder, and the commands that make them, preprocessing first.
void add_analyses(HtmlReport& page, std::span<const Verb> verbs) {
  std::vector<std::string> commands;
  HtmlTable table{"Names lead to the maps of z.",
                  {{.title = "Analysis", .link = HtmlLink::file},
                   {"Command"},
                   {"Studies", true},
                   {"Participants", true}},
                  {}};
  try {
    commands.push_back(facts_of_map("", verbs).commands.front());
    for (const std::string& map : read_map_list()) {
      const auto facts = read_analysis_facts(map);
      if (!facts) continue;
      table.rows.push_back({{map_file(map, z_map), facts->command, Q_count_text(facts->studies),
                             Q_count_text(facts->participants)}});
      if (std::find(commands.begin(), commands.end(), facts->command) == commands.end())
        commands.push_back(facts->command);
    }
  } catch (const Refusal&) {
    // Without preprocessing there are no maps.
  }
  if (!table.rows.empty()) {
    page.heading("Analyses");
    page.table(table);
  }
  page.heading("What was run");
  page.commands(commands);
}

/// The lines of the batch that are commands.
void add_batch(HtmlReport& page) {
  std::vector<std::string> lines;
  try {
    const std::string batch = read_text(KVO_BATCH_FILE);
    for (const TextLine& line : filled_lines(batch))
      if (!line.text.starts_with('#')) lines.emplace_back(line.text);
  } catch (const Refusal&) {
    return;
  }
  if (lines.empty()) return;
  page.heading("The batch that makes it again");
  page.paragraph("From the file " + std::string(KVO_BATCH_FILE) + " of this folder.");
  page.commands(lines);
}

}  // namespace

std::string renew_overview(std::span<const Verb> verbs) {
  std::error_code ignored;
  if (fs::exists(fs::symlink_status(page_file, ignored)) &&
      !page_generator(own_page(page_file, without_picture)).ends_with(page_kind))
    return "";
  const std::optional<FolderStudies> studies = read_studies();
  const std::vector<FolderReport> reports = reports_of_folder();
  if (!studies && reports.empty()) return "";
  HtmlReport page("Overview of " + fs::current_path(ignored).filename().string(),
                  "What this folder holds, as the last command left it", page_kind);
  add_reports(page, reports);
  add_analyses(page, verbs);
  add_batch(page);
  if (studies) add_studies(page, *studies);
  page.heading("Program");
  page.facts(std::vector<Fact>{{"Program", program_text()}});
  Outputs outputs;
  outputs.write_text(page_file, page.finish());
  outputs.commit();
  return page_file;
}

}  // namespace kvo::results
