#include "engine/results/cluster_result.h"

#include <algorithm>
#include <filesystem>

#include "engine/base/progress.h"
#include "engine/base/refusal.h"
#include "engine/base/text_file.h"
#include "engine/results/cluster_table.h"
#include "engine/results/results.h"
#include "engine/studies/study_rules.h"
#include "util/q_string.h"
#include "util/text.h"
#include "workspace/files/file_names.h"

namespace kvo::results {

std::string threshold_text(double value, int decimals) {
  std::string text = Q_format("%.*f", decimals, value).str();
  return number_of(text) == value ? text : text_of(value);
}

void check_result_name(const std::string& base) {
  if (base.size() > KVO_RESULT_NAME_MAX)
    throw Refusal("The name of the result, '" + base + "', would be too long for a file.");
  const std::string image = image_file_of(base);
  std::error_code ignored;
  // A link is something made elsewhere too, wherever it leads.
  const bool taken = std::filesystem::exists(std::filesystem::symlink_status(image, ignored));
  if (taken && !written_by_this_system(image))
    throw Refusal("There is already a '" + image +
                  "' that was made elsewhere. Please move or rename it.");
}

void keep_clusters(ClusterResult& result, const ClusterCriteria& criteria) {
  result.clusters = clusters_of(result.z);
  std::erase_if(result.clusters, [&](const Cluster& cluster) {
    return cluster.voxels() < criteria.extent || !criteria.keep(cluster);
  });
  std::vector<float> kept(result.z.size());
  for (const Cluster& cluster : result.clusters)
    for (const std::uint32_t index : cluster.grid_index) kept[index] = result.z[index];
  result.z = std::move(kept);
  add_p(result.clusters, criteria.tails);
  add_regions(result.clusters, criteria.atlas);
}

void write_result(Outputs& outputs, const Command& command, const ClusterResult& result,
                  ClusterReport report) {
  Action action("Writing the report of " + result.map);
  Image image;
  image.grid = mni_grid();
  image.intent_code = z_map.intent_code;
  image.description = image_description(command.text());
  image.values = result.z;
  write_image(outputs.path_of(image_file_of(result.base)), image);
  outputs.write_text(result.base + ".csv", cluster_csv(result.map, result.clusters));
  report.title = result.map;
  report.subtitle = result.criteria;
  report.clusters = result.clusters;
  report.z = result.z;
  report.background = read_brain_background();
  outputs.write_text(result.base + ".html", cluster_report(report));
  action.finish();
}

void say_result(const ClusterResult& result) {
  const auto positive =
      std::size_t(std::count_if(result.clusters.begin(), result.clusters.end(),
                                [](const Cluster& cluster) { return cluster.positive; }));
  const std::size_t negative = result.clusters.size() - positive;
  if (result.clusters.empty()) {
    say("No cluster of " + result.map + " survives: " + result.criteria);
  } else {
    say(result.map + ": " + Q_counted(positive, "cluster", "clusters") + " of positive and " +
        std::to_string(negative) + " of negative effect (" + result.criteria + ")");
    say("");
    say_clusters(result.clusters);
  }
  say("");
  say("Image:  " + image_file_of(result.base));
  say("Table:  " + result.base + ".csv");
  say("Report: " + result.base + ".html");
}

}  // namespace kvo::results
