// How the clusters of a mean fare when one study at a time is left out: what the runs of a
// jackknife, which the front end has had made, come to.

#include <algorithm>
#include <utility>

#include "engine/base/outputs.h"
#include "engine/base/progress.h"
#include "engine/base/refusal.h"
#include "engine/base/wording.h"
#include "engine/maps/pp_record.h"
#include "engine/results/cluster_result.h"
#include "engine/results/jackknife_table.h"
#include "engine/results/leave_one_out.h"
#include "engine/results/map_facts.h"
#include "engine/results/thresholding.h"
#include "engine/studies/study_rules.h"
#include "engine/verbs/verbs.h"
#include "util/text.h"
#include "workspace/files/file_names.h"

namespace kvo::verbs {

namespace {

struct JackknifeInputs {
  std::string base;  ///< name of the outputs, up to the ending
  LeaveOneOut runs;
  ThresholdedImage thresholded;
  ThresholdRequest request;
  ChosenP chosen;
  Mask mask;
  std::vector<Cluster> clusters;  ///< of the mean of all studies
};

/// Throws Refusal unless the folder has the map of an analysis.
void check_listed(const std::string& name) {
  const std::vector<std::string> maps = read_map_list();
  if (std::find(maps.begin(), maps.end(), name) != maps.end()) return;
  throw Refusal("'" + std::string(KVO_MAPS_FILE) + "' has no map '" + name + "'. " +
                (maps.empty() ? "Please estimate it and try again."
                              : "The maps are: " + listed(maps, ", ") + "."));
}

ThresholdedImage thresholded_image(const std::string& name) {
  if (auto newest = newest_thresholded(name, all_verbs())) return std::move(*newest);
  throw Refusal("There is no thresholded map of '" + name + "', such as '" +
                image_file_of(name + "_z_p_0.00500_1.000_10") +
                "'. Please threshold it and try again.");
}

/// Throws Refusal when the image is not what the map has now.
void check_same(const std::string& file, std::span<const Cluster> clusters) {
  std::vector<float> values = read_on_mni_grid(file).values;
  const auto differs = [&] {
    for (const Cluster& cluster : clusters)
      for (const std::uint32_t index : cluster.grid_index)
        if (std::exchange(values[index], 0.0F) == 0) return true;
    return std::any_of(values.begin(), values.end(), [](float value) { return value != 0; });
  };
  if (differs())
    throw Refusal("'" + file +
                  "' is not what its thresholds leave of the map now, which has been estimated "
                  "again since. Please threshold it and try again.");
}

JackknifeInputs prepare_jackknife(const Command& command) {
  const std::string& name = command.arguments[0];
  const PpRecord record = read_pp_record();
  check_listed(name);
  JackknifeInputs inputs;
  inputs.base = name + "_jackknife";
  check_result_name(inputs.base);
  inputs.thresholded = thresholded_image(name);
  inputs.request = threshold_request(inputs.thresholded.command);
  inputs.chosen = inputs.request.map == name ? ChosenP{name} : chosen_p(inputs.request.map);
  inputs.runs = leave_one_out_of(name, all_verbs());
  check_runs(inputs.runs);
  inputs.mask = read_mask(mask_path(record.mask));
  inputs.clusters = surviving_clusters(inputs.request, inputs.chosen, inputs.mask);
  check_same(inputs.thresholded.file, inputs.clusters);
  add_regions(inputs.clusters, read_atlas());
  return inputs;
}

void write_shares(Outputs& outputs, const Command& command, const std::string& base,
                  std::vector<float> share) {
  Image image;
  image.grid = mni_grid();
  image.description = image_description(command.text());
  image.values = std::move(share);
  write_image(outputs.path_of(image_file_of(base)), image);
}

std::string page_of(const Command& command, const JackknifeInputs& inputs,
                    const LeaveOneOutMaps& maps) {
  MapFacts known = facts_of_map(inputs.chosen.map, all_verbs());
  const std::string criteria = criteria_text(inputs.request, inputs.chosen);
  known.facts.insert(known.facts.begin(),
                     {{"Map", inputs.request.map},
                      {"Thresholds", criteria + ", as those of " + inputs.thresholded.file},
                      {"Runs", Q_count_text(maps.without.runs) + ", each without one study"}});
  known.commands.push_back(inputs.thresholded.command.text());
  known.commands.push_back(command.text());
  return jackknife_report({.title = inputs.chosen.map + ": jackknife",
                           .subtitle = criteria,
                           .facts = known.facts,
                           .commands = known.commands,
                           .clusters = inputs.clusters,
                           .without = maps.without,
                           .share = maps.signed_share,
                           .background = read_brain_background()});
}

}  // namespace

void check_jackknife(const Command& command) {
  prepare_jackknife(command);
}

void run_jackknife(const Command& command) {
  Outputs outputs;
  const JackknifeInputs inputs = prepare_jackknife(command);
  const LeaveOneOutMaps maps =
      threshold_runs(inputs.runs, inputs.request, inputs.chosen, inputs.mask, inputs.clusters);
  Action action("Writing the report of the jackknife of " + inputs.chosen.map);
  write_shares(outputs, command, inputs.base, maps.share);
  outputs.write_text(inputs.base + ".csv",
                     jackknife_csv(inputs.request.map, inputs.clusters, maps.without));
  outputs.write_text(inputs.base + ".html", page_of(command, inputs, maps));
  action.finish();
  outputs.commit();
  say(inputs.request.map + ": " + criteria_text(inputs.request, inputs.chosen));
  say("");
  say_jackknife(inputs.clusters, maps.without);
  say("");
  say("Image:  " + image_file_of(inputs.base));
  say("Table:  " + inputs.base + ".csv");
  say("Report: " + inputs.base + ".html");
}

}  // namespace kvo::verbs
