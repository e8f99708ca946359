#include "engine/results/jackknife_table.h"

#include <vector>

#include "engine/base/columns.h"
#include "engine/base/csv.h"
#include "engine/base/wording.h"
#include "util/q_string.h"

namespace kvo::results {

std::string jackknife_csv(const std::string& map, std::span<const Cluster> clusters,
                          const WithoutOne& without) {
  const auto precise = [](double value) { return Q_format("%.7g", value).str(); };
  std::string csv = csv_line(
      std::vector<std::string>{"map", "cluster", "direction", "voxels", "MNI x (mm)", "MNI y (mm)",
                               "MNI z (mm)", "region", "runs", "survives in", "g", "lowest g",
                               "highest g", "study that matters most", "g without it"});
  for (std::size_t c = 0; c < clusters.size(); ++c) {
    const Cluster& cluster = clusters[c];
    const ClusterWithoutOne& each = without.clusters[c];
    const auto [x, y, z] = mm_of(cluster.peaks.front().voxel);
    csv += csv_line(std::vector<std::string>{
        map, std::to_string(c + 1), cluster.positive ? "positive" : "negative",
        std::to_string(cluster.voxels()), std::to_string(x), std::to_string(y), std::to_string(z),
        cluster.peaks.front().region, std::to_string(without.runs), std::to_string(each.survived),
        precise(each.g), precise(each.lowest), precise(each.highest), each.study,
        precise(each.without)});
  }
  return csv;
}

void say_jackknife(std::span<const Cluster> clusters, const WithoutOne& without) {
  std::vector<std::vector<std::string>> rows = {{"Cluster", "MNI x,y,z", "Survives in", "g",
                                                 "Lowest", "Highest", "Matters most",
                                                 "Region of the peak"}};
  for (std::size_t c = 0; c < clusters.size(); ++c) {
    const LocalPeak& peak = clusters[c].peaks.front();
    const ClusterWithoutOne& each = without.clusters[c];
    const auto [x, y, z] = mm_of(peak.voxel);
    rows.push_back({std::to_string(c + 1), Q_format("%d,%d,%d", x, y, z).str(),
                    std::to_string(each.survived) + " of " + std::to_string(without.runs),
                    decimal_text(each.g, 3), decimal_text(each.lowest, 3),
                    decimal_text(each.highest, 3), each.study, peak.region});
  }
  say_table(rows, "rrrrrrll");
}

}  // namespace kvo::results
