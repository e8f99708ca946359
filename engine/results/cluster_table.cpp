#include "engine/results/cluster_table.h"

#include <algorithm>
#include <array>
#include <vector>

#include "engine/base/columns.h"
#include "engine/base/csv.h"
#include "engine/base/progress.h"
#include "engine/base/wording.h"
#include "util/q_string.h"

namespace kvo::results {

namespace {

using Row = std::vector<std::string>;

constexpr std::size_t clusters_in_console = 20;  // of each direction
constexpr std::size_t peaks_in_console = 3;
constexpr std::size_t kinds_in_console = 2;  // uncorrected and by value
constexpr std::size_t regions_in_console = 3;
// All that a 32-bit float can tell.
constexpr const char* exact = "%.7g";

std::string volume_text(const Cluster& cluster) {
  return std::to_string(cluster.voxels() * voxel_volume);
}

std::string share_text(std::size_t voxels, const Cluster& cluster) {
  return Q_format("%.1f", 100.0 * double(voxels) / double(cluster.voxels())).str();
}

/// "Left insula 45.2 % (123)" and so on.
std::string regions_text(const Cluster& cluster) {
  std::string text;
  for (const RegionShare& share : cluster.regions)
    text += (text.empty() ? "" : "; ") + share.region + " " + share_text(share.voxels, cluster) +
            " % (" + std::to_string(share.voxels) + ")";
  return text;
}

Row csv_row(const std::string& map, std::size_t number, const Cluster& cluster, std::size_t nth) {
  const LocalPeak& peak = cluster.peaks[nth];
  const auto [x, y, z] = mm_of(peak.voxel);
  Row row{map,
          std::to_string(number),
          cluster.positive ? "positive" : "negative",
          std::to_string(cluster.voxels()),
          volume_text(cluster),
          std::to_string(nth + 1),
          std::to_string(x),
          std::to_string(y),
          std::to_string(z),
          Q_format(exact, peak.z).str()};
  for (const std::optional<double>& p : peak.p) row.push_back(p ? Q_format(exact, *p).str() : "");
  row.push_back(peak.region);
  row.push_back(regions_text(cluster));
  return row;
}

Row console_row(std::size_t number, const Cluster& cluster, std::size_t nth,
                std::span<const std::size_t> kinds) {
  const LocalPeak& peak = cluster.peaks[nth];
  const auto [x, y, z] = mm_of(peak.voxel);
  Row row = nth == 0 ? Row{std::to_string(number), cluster.positive ? "positive" : "negative",
                           std::to_string(cluster.voxels()), volume_text(cluster)}
                     : Row{"", "", "", ""};
  row.push_back(Q_format("%d,%d,%d", x, y, z).str());
  row.push_back(Q_format("%.3f", peak.z).str());
  for (const std::size_t kind : kinds) row.push_back(peak.p[kind] ? p_text(*peak.p[kind]) : "");
  row.push_back(peak.region);
  return row;
}

void add_region_rows(std::vector<Row>& rows, std::size_t number, const Cluster& cluster) {
  std::size_t left = cluster.voxels();
  const auto add = [&](std::size_t voxels, const std::string& region) {
    const bool first = left == cluster.voxels();
    rows.push_back({first ? std::to_string(number) : "", share_text(voxels, cluster),
                    std::to_string(voxels), region});
    left -= voxels;
  };
  for (std::size_t r = 0; r < std::min(cluster.regions.size(), regions_in_console); ++r)
    add(cluster.regions[r].voxels, cluster.regions[r].region);
  if (left > 0) add(left, "others");
}

/// The clusters that the console shows: the first ones of each direction.
std::vector<std::size_t> in_console(std::span<const Cluster> clusters) {
  std::vector<std::size_t> shown;
  std::array<std::size_t, 2> of_direction{};
  for (std::size_t c = 0; c < clusters.size(); ++c)
    if (++of_direction[clusters[c].positive ? 1 : 0] <= clusters_in_console) shown.push_back(c);
  return shown;
}

}  // namespace

std::string cluster_csv(const std::string& map, std::span<const Cluster> clusters) {
  Row header = {"map",        "cluster",    "direction",  "voxels", "volume (mm3)",  "peak",
                "MNI x (mm)", "MNI y (mm)", "MNI z (mm)", "z",      "p (one-tailed)"};
  for (std::size_t kind = 1; kind < p_map_kinds.size(); ++kind)
    header.push_back(p_map_kinds[kind].heading);
  header.push_back("region");
  header.push_back("regions of the cluster: % (voxels)");
  std::string csv = csv_line(header);
  for (std::size_t c = 0; c < clusters.size(); ++c)
    for (std::size_t nth = 0; nth < clusters[c].peaks.size(); ++nth)
      csv += csv_line(csv_row(map, c + 1, clusters[c], nth));
  return csv;
}

void say_clusters(std::span<const Cluster> clusters) {
  const std::vector<std::size_t> shown = in_console(clusters);
  // There is no room for all.
  std::vector<std::size_t> kinds = kinds_of_p(clusters);
  kinds.resize(std::min(kinds.size(), kinds_in_console));
  std::vector<Row> rows = {{"Cluster", "Effect", "Voxels", "mm³", "MNI x,y,z", "z"}};
  for (const std::size_t kind : kinds) rows[0].push_back(p_map_kinds[kind].heading);
  rows[0].push_back("Region of the peak");
  std::vector<Row> regions = {{"Cluster", "%", "Voxels", "Regions of the cluster"}};
  for (const std::size_t c : shown) {
    const Cluster& cluster = clusters[c];
    for (std::size_t nth = 0; nth < std::min(cluster.peaks.size(), peaks_in_console); ++nth)
      rows.push_back(console_row(c + 1, cluster, nth, kinds));
    add_region_rows(regions, c + 1, cluster);
  }
  say_table(rows, "rlrrrr" + std::string(kinds.size(), 'r') + "l");
  say("");
  say_table(regions, "rrrl");
  if (shown.size() < clusters.size())
    say(std::to_string(clusters.size() - shown.size()) + " smaller clusters are in the files");
}

}  // namespace kvo::results
