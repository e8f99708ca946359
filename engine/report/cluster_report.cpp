#include "engine/report/cluster_report.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>

#include "engine/base/wording.h"
#include "engine/report/checklist.h"
#include "util/text.h"

namespace kvo::report {

namespace {

// More of them would make the table a long one; the lowest are left out.
constexpr std::size_t most_peaks = 12;
// Smaller parts of a cluster are summed up.
constexpr double least_share = 0.01;
constexpr int midline_mm = 4;

std::string with_capital(std::string text) {
  if (!text.empty()) text[0] = char(std::toupper(static_cast<unsigned char>(text[0])));
  return text;
}

/// A p, and below it the standard error that so many randomizations leave where it matters.
std::string p_with_error(double p, std::size_t randomizations) {
  constexpr double doubtful = 0.2;
  if (randomizations == 0 || p > doubtful) return p_text(p);
  return p_text(p) + "\n\u00B1 " + p_text(std::sqrt(p * (1 - p) / double(randomizations)));
}

bool has_effects(const ClusterReport& report) {
  return std::any_of(report.clusters.begin(), report.clusters.end(), [](const Cluster& cluster) {
    return cluster.peaks.front().effect.has_value();
  });
}

HtmlRow peak_row(const LocalPeak& peak, std::span<const std::size_t> kinds,
                 const ClusterReport& report) {
  HtmlRow row{{"", region_and_side(peak)}};
  row.place = mm_of(peak.voxel);
  for (const int mm : *row.place) row.cells.push_back(decimal_text(mm, 0));
  row.cells.push_back(decimal_text(peak.z, 2));
  if (has_effects(report))
    row.cells.push_back(peak.effect ? decimal_text((*peak.effect)[0], 2) + "\n" +
                                          decimal_text((*peak.effect)[1], 2) + " to " +
                                          decimal_text((*peak.effect)[2], 2)
                                    : "");
  for (const std::size_t kind : kinds)
    row.cells.push_back(peak.p[kind] ? p_with_error(*peak.p[kind], report.randomizations[kind])
                                     : "");
  return row;
}

void add_cluster_rows(std::vector<HtmlRow>& rows, const Cluster& cluster, std::size_t number,
                      std::span<const std::size_t> kinds, const ClusterReport& report) {
  const std::size_t shown = std::min(cluster.peaks.size(), most_peaks);
  for (std::size_t i = 0; i < shown; ++i) {
    HtmlRow row = peak_row(cluster.peaks[i], kinds, report);
    if (i == 0) {
      row.leads = true;
      row.cells[0] = std::to_string(number);
      row.cells.push_back(Q_count_text(cluster.voxels()) + "\n" +
                          Q_count_text(cluster.voxels() * voxel_volume));
    }
    rows.push_back(std::move(row));
  }
  if (const std::size_t left = cluster.peaks.size() - shown; left > 0)
    rows.push_back({{"", "and " + Q_counted(left, "lower peak", "lower peaks")}});
}

HtmlTable cluster_table(const ClusterReport& report) {
  const std::vector<std::size_t> kinds = kinds_of_p(report.clusters);
  HtmlTable table;
  table.caption =
      "Each cluster with its highest peak, and below it its further local peaks. Coordinates in mm "
      "of MNI space; p one-tailed, \u00B1 the standard error that the number of randomizations "
      "leaves.";
  table.columns = {{"No."},     {"Region"},  {"x", true},
                   {"y", true}, {"z", true}, {"Peak " + report.statistic, true}};
  if (has_effects(report)) table.columns.push_back({"g (95 %)", true, true});
  for (const std::size_t kind : kinds)
    table.columns.push_back({p_map_kinds[kind].heading, true, true});
  table.columns.push_back({"Voxels\nmm³", true, true});
  std::size_t number = 0;
  for (const Cluster& cluster : report.clusters)
    add_cluster_rows(table.rows, cluster, ++number, kinds, report);
  return table;
}

std::string share_text(double share) {
  return decimal_text(100 * share, 1) + " %";
}

HtmlTable region_table(std::span<const Cluster> clusters) {
  HtmlTable table{"Where the voxels of each cluster lie.",
                  {{"No."}, {"Region"}, {"Voxels", true}, {"Share", true}},
                  {}};
  std::size_t number = 0;
  for (const Cluster& cluster : clusters) {
    ++number;
    const auto all = double(cluster.voxels());
    std::size_t others = 0, other_voxels = 0;
    bool leads = true;
    for (const RegionShare& region : cluster.regions) {
      const double share = double(region.voxels) / all;
      if (share < least_share) {
        ++others;
        other_voxels += region.voxels;
        continue;
      }
      table.rows.push_back({{leads ? std::to_string(number) : "", with_capital(region.region),
                             Q_count_text(region.voxels), share_text(share)},
                            leads,
                            share});
      leads = false;
    }
    if (others > 0)
      table.rows.push_back(
          {{leads ? std::to_string(number) : "", Q_counted(others, "smaller part", "smaller parts"),
            Q_count_text(other_voxels), share_text(double(other_voxels) / all)},
           leads,
           double(other_voxels) / all});
  }
  return table;
}

std::string summary(std::span<const Cluster> clusters) {
  std::size_t voxels = 0;
  for (const Cluster& cluster : clusters) voxels += cluster.voxels();
  const auto positive = std::size_t(std::count_if(
      clusters.begin(), clusters.end(), [](const Cluster& cluster) { return cluster.positive; }));
  return Q_counted(clusters.size(), "cluster survives", "clusters survive") +
         " the thresholds: " + Q_count_text(positive) + " positive and " +
         Q_count_text(clusters.size() - positive) + " negative, " +
         Q_counted(voxels, "voxel", "voxels") + " (" + Q_count_text(voxels * voxel_volume) +
         " mm³) in all.";
}

void add_glass_brain(HtmlReport& page, const ClusterReport& report, const BrainMap& map) {
  std::vector<BrainMark> marks;
  for (const Cluster& cluster : report.clusters)
    marks.push_back({cluster.peaks.front().voxel, std::to_string(marks.size() + 1)});
  page.picture(glass_brain(map, report.background, marks),
               "Glass brain: the largest magnitudes along each line of sight. Numbers stand at the "
               "highest peaks of the clusters; those that would cover others are left out. Left "
               "is left (neurological convention).");
}

void add_slices(HtmlReport& page, const ClusterReport& report, const BrainMap& map) {
  page.picture(axial_slices(map, report.background),
               "Axial slices over the template, z in mm of MNI space. Left is left (neurological "
               "convention).");
}

void add_without_one(HtmlReport& page, const ClusterReport& report) {
  if (!report.without_one && report.without_one_fault.empty()) return;
  page.heading("Without one study each");
  if (report.without_one)
    page.table(without_one_table(report.clusters, *report.without_one));
  else
    page.paragraph("It cannot be told how the clusters fare without one study each: " +
                   report.without_one_fault);
}

}  // namespace

std::string region_and_side(const LocalPeak& peak) {
  if (peak.region.starts_with("Left ") || peak.region.starts_with("Right ")) return peak.region;
  const int x = mm_of(peak.voxel)[0];
  return with_capital(peak.region) + (std::abs(x) < midline_mm ? " (midline)"
                                      : x < 0                  ? " (left)"
                                                               : " (right)");
}

std::string cluster_report(const ClusterReport& report) {
  HtmlReport page(report.title, report.subtitle);
  const BrainMap map{report.z, report.statistic};
  if (report.clusters.empty()) {
    page.notice("Nothing survives the thresholds: there is no cluster to report.");
  } else {
    page.paragraph(summary(report.clusters));
    add_glass_brain(page, report, map);
    page.heading("Clusters and local peaks");
    page.table(cluster_table(report));
    add_without_one(page, report);
  }
  if (report.explored)
    add_explorer(page, *report.explored, report.z, report.clusters, report.background);
  if (!report.clusters.empty()) {
    page.heading("Slices");
    add_slices(page, report, map);
    page.heading("Breakdown by region");
    page.table(region_table(report.clusters));
  }
  if (!report.studies.rows.empty()) {
    page.heading("Studies");
    page.table(report.studies);
  }
  page.heading("What was run");
  page.facts(report.facts);
  page.commands(report.commands);
  page.methods(report.methods);
  if (report.checked) {
    page.heading("Checklist");
    page.table(checklist_of(*report.checked, report.without_one.has_value()));
  }
  return page.finish();
}

}  // namespace kvo::report
