// The clusters of a map of the working folder beyond a probability.

#include <algorithm>
#include <cmath>
#include <string_view>

#include "engine/base/progress.h"
#include "engine/base/refusal.h"
#include "engine/maps/pp_record.h"
#include "engine/results/cluster_result.h"
#include "engine/results/map_facts.h"
#include "engine/results/results.h"
#include "engine/verbs/verbs.h"

namespace kvo::verbs {

namespace {

struct Thresholds {
  float p, height;
  std::size_t extent;
  std::string p_text, height_text;
};

Thresholds thresholds_of(const Command& command) {
  const double p = command.number(2), height = command.number(3);
  return {float(p), float(height), std::size_t(command.number(4)), threshold_text(p, 5),
          threshold_text(height, 3)};
}

/// Throws Refusal unless the folder has the map.
void check_map(const std::string& map) {
  const std::vector<std::string> maps = read_map_list();
  if (std::find(maps.begin(), maps.end(), map) != maps.end()) return;
  std::string list;
  for (const std::string& each : maps) list += (list.empty() ? "" : ", ") + each;
  const std::string_view whole =
      std::string_view(map).substr(0, map.size() - std::min<std::size_t>(map.size(), 2));
  if (map.ends_with(negative_suffix) && std::find(maps.begin(), maps.end(), whole) != maps.end())
    throw Refusal("'" + map + "' is the negative tail of map '" + std::string(whole) +
                  "'. Please threshold that: both directions are looked at.");
  throw Refusal(
      "There is no map '" + map + "'. " +
      (list.empty() ? "Please estimate maps and try again." : "The maps are: " + list + "."));
}

/// A map with all that it is thresholded by.
struct ZMap {
  Mask mask;
  std::vector<float> z;  ///< in the mask
  BothTails tails;
};

ZMap open_map(const Command& command) {
  const std::string& name = command.arguments[0];
  const PpRecord record = read_pp_record();
  check_map(name);
  ZMap map;
  map.mask = read_mask(mask_path(record.mask));
  map.z = read_map(name + z_map.suffix + ".nii.gz", map.mask);
  map.tails = read_tails(name);
  return map;
}

std::string base_of(const Command& command, const Thresholds& thresholds) {
  return command.arguments[0] + "_z_p_" + thresholds.p_text + "_" + thresholds.height_text + "_" +
         std::to_string(thresholds.extent);
}

/// z where p is below the threshold in z's own direction, else 0; of the whole grid.
std::vector<float> beyond(const ZMap& map, float p) {
  std::vector<float> z(mni_grid().voxels());
  for (std::size_t n = 0; n < map.mask.size(); ++n) {
    const std::uint32_t index = map.mask.grid_index[n];
    const TailP& tail = map.z[n] > 0 ? map.tails.positive : map.tails.negative;
    if (tail.p[index] < p) z[index] = map.z[n];
  }
  return z;
}

ClusterReport report_of(const Command& command, const ClusterResult& result,
                        const Thresholds& thresholds) {
  MapFacts known = facts_of_map(command.arguments[0], all_verbs());
  MethodsFacts::Thresholds stated;
  stated.p = command.number(2);
  stated.peak_z = command.number(3);
  stated.extent = thresholds.extent;
  known.methods.thresholds = stated;
  ClusterReport report;
  report.facts = std::move(known.facts);
  report.facts.insert(report.facts.begin(),
                      {{"Map", command.arguments[0]}, {"Thresholds", result.criteria}});
  if (known.methods.analysis == MethodsFacts::Analysis::linear_model)
    report.facts.insert(report.facts.begin() + 1,
                        {"Coefficient", known.methods.term.empty()
                                            ? "the intercept: the effect where all terms are 0"
                                            : "of " + known.methods.term});
  report.commands = std::move(known.commands);
  report.commands.push_back(command.text());
  report.methods = methods_of(known.methods);
  return report;
}

}  // namespace

void check_threshold(const Command& command) {
  check_result_name(base_of(command, thresholds_of(command)));
  open_map(command);
  read_atlas();
}

void run_threshold(const Command& command) {
  const Thresholds thresholds = thresholds_of(command);
  ClusterResult result;
  result.map = command.arguments[0];
  result.base = base_of(command, thresholds);
  result.criteria = "p < " + thresholds.p_text + ", peak |z| at least " + thresholds.height_text +
                    ", at least " + std::to_string(thresholds.extent) +
                    (thresholds.extent == 1 ? " voxel" : " voxels");
  check_result_name(result.base);
  Outputs outputs;
  {
    Action action("Thresholding " + result.map);
    const ZMap map = open_map(command);
    result.z = beyond(map, thresholds.p);
    keep_clusters(
        result, thresholds.extent,
        [&](const Cluster& cluster) {
          return std::abs(cluster.peaks.front().z) >= double(thresholds.height);
        },
        map.tails);
    action.finish();
  }
  write_result(outputs, command, result, report_of(command, result, thresholds));
  outputs.commit();
  say_result(result);
}

}  // namespace kvo::verbs
