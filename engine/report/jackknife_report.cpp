#include "engine/report/jackknife_report.h"

#include <algorithm>

#include "engine/base/wording.h"
#include "engine/report/cluster_report.h"
#include "util/text.h"

namespace kvo::report {

namespace {

std::string robust_text(const WithoutOne& without) {
  const auto robust = std::size_t(
      std::count_if(without.clusters.begin(), without.clusters.end(),
                    [&](const ClusterWithoutOne& each) { return each.survived == without.runs; }));
  return Q_count_text(robust) + " of " +
         Q_counted(without.clusters.size(), "cluster survives", "clusters survive") +
         " whichever study is left out (" + Q_counted(without.runs, "run", "runs") + ").";
}

}  // namespace

HtmlTable without_one_table(std::span<const Cluster> clusters, const WithoutOne& without) {
  HtmlTable table{
      "The mean was repeated without each study in turn and thresholded in the same way. A cluster "
      "survives a run that has any of its voxels in a cluster of the same direction. g is that of "
      "the cluster's peak: of all studies, and the lowest and the highest of the runs. The study "
      "that matters most is the one without which g changes most.",
      {{"No."},
       {"Region"},
       {"g", true},
       {"Lowest", true},
       {"Highest", true},
       {"Matters most", false, true},
       {"Survives in", true}},
      {}};
  for (std::size_t c = 0; c < clusters.size(); ++c) {
    const ClusterWithoutOne& each = without.clusters[c];
    table.rows.push_back(
        {{std::to_string(c + 1), region_and_side(clusters[c].peaks.front()),
          decimal_text(each.g, 2), decimal_text(each.lowest, 2), decimal_text(each.highest, 2),
          each.study + "\ng " + decimal_text(each.without, 2) + " without it",
          Q_count_text(each.survived) + " of " + Q_count_text(without.runs)},
         false,
         double(each.survived) / double(without.runs)});
  }
  return table;
}

std::string jackknife_report(const JackknifeReport& report) {
  HtmlReport page(report.title, report.subtitle);
  if (report.clusters.empty())
    page.notice("The mean of all studies has no cluster beyond the thresholds.");
  else
    page.paragraph(robust_text(report.without));
  if (!report.clusters.empty()) {
    page.heading("Without one study each");
    page.table(without_one_table(report.clusters, report.without));
  }
  page.heading("Where the runs have clusters");
  page.picture(axial_slices({report.share, "effects: share of runs"}, report.background),
               "Axial slices over the template, z in mm of MNI space: the share of runs in which "
               "a voxel survives the thresholds. Left is left (neurological convention).");
  page.heading("What was run");
  page.facts(report.facts);
  page.commands(report.commands);
  return page.finish();
}

}  // namespace kvo::report
