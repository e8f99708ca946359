// The clusters of a map of the working folder beyond a probability.

#include <algorithm>
#include <cmath>
#include <optional>
#include <span>
#include <string_view>
#include <utility>

#include "engine/base/exists.h"
#include "engine/base/progress.h"
#include "engine/base/refusal.h"
#include "engine/base/wording.h"
#include "engine/maps/pp_record.h"
#include "engine/results/cluster_result.h"
#include "engine/results/explored_map.h"
#include "engine/results/leave_one_out.h"
#include "engine/results/map_facts.h"
#include "engine/results/results.h"
#include "engine/results/thresholding.h"
#include "engine/verbs/verbs.h"
#include "util/text.h"
#include "workspace/files/map_lists.h"

namespace kvo::verbs {

namespace {

/// Throws Refusal unless the folder has the map.
ChosenP chosen_map(const std::string& map) {
  const std::vector<std::string> maps = read_map_list();
  const auto listed = [&](const std::string& name) {
    return std::find(maps.begin(), maps.end(), name) != maps.end();
  };
  if (listed(map)) return {map};
  if (ChosenP chosen = chosen_p(map); listed(chosen.map)) return chosen;
  std::string list;
  for (const std::string& each : maps) list += (list.empty() ? "" : ", ") + each;
  const std::string_view whole =
      std::string_view(map).substr(0, map.size() - std::min<std::size_t>(map.size(), 2));
  if (kvo_is_negative_tail(map) && std::find(maps.begin(), maps.end(), whole) != maps.end())
    throw Refusal("'" + map + "' is the negative tail of map '" + std::string(whole) +
                  "'. Please threshold that: both directions are looked at.");
  throw Refusal(
      "There is no map '" + map + "'. " +
      (list.empty() ? "Please estimate maps and try again." : "The maps are: " + list + "."));
}

/// A map with all that it is thresholded and described by.
struct ZMap {
  Mask mask;
  ChosenP chosen;
  std::vector<float> z;  ///< in the mask
  BothTails tails;
  std::array<std::vector<float>, 2> p;  ///< what is thresholded, in either direction
  std::vector<float> atlas;
  std::optional<std::array<std::vector<float>, 3>>
      effects{};  ///< with their limits, if they are there
};

ZMap prepare_threshold(const ThresholdRequest& request) {
  check_result_name(threshold_base(request));
  const PpRecord record = read_pp_record();
  ZMap map;
  map.chosen = chosen_map(request.map);
  map.mask = read_mask(mask_path(record.mask));
  map.z = read_map(map_file(map.chosen.map, z_map), map.mask);
  map.tails = read_tails(map.chosen.map);
  map.p = map.chosen.kind == 0 && !map.chosen.both
              ? std::array{map.tails.positive.front(), map.tails.negative.front()}
              : read_chosen(map.chosen);
  map.atlas = read_atlas();
  const auto file = [&](const MapKind& kind) { return map_file(map.chosen.map, kind); };
  // Earlier versions left no limits.
  if (path_exists(file(g_map)) && path_exists(file(ci_low_map)) && path_exists(file(ci_high_map)))
    map.effects = {read_on_mni_grid(file(g_map)).values, read_on_mni_grid(file(ci_low_map)).values,
                   read_on_mni_grid(file(ci_high_map)).values};
  return map;
}

/// How well the randomizations tell a p as large as the threshold.
struct CertaintyOfP {
  std::string text;
  bool enough = true;  ///< its standard error is at most half of it
};

/// Of a p that is counted among so many randomizations.
CertaintyOfP certainty_among(double made, const ThresholdRequest& request, const ChosenP& chosen) {
  const double sides = chosen.both ? 2 : 1, p = double(request.p) / sides, least = 4 * (1 - p) / p;
  CertaintyOfP certainty{"With " + Q_counted(std::size_t(made), "randomization", "randomizations") +
                             " a " + name_of_p(chosen) + " of " + p_text(double(request.p)) +
                             " has a standard error of " +
                             p_text(sides * std::sqrt(p * (1 - p) / made)),
                         made >= least};
  if (!certainty.enough)
    certainty.text +=
        "; " + Q_count_text(std::size_t(std::ceil(least))) + " would make it half of the p";
  return certainty;
}

/// Of the p that is thresholded. Nothing is said of rates of false discoveries, nor where the
/// numbers are not known.
CertaintyOfP certainty_of_p(const ThresholdRequest& request, const ChosenP& chosen,
                            bool exchanged) {
  const auto made = double(randomizations_of(chosen.map, std::max<std::size_t>(chosen.kind, 1)));
  if (made == 0 || chosen.kind + 1 == p_map_kinds.size()) return {};
  if (chosen.kind > 0 || exchanged) return certainty_among(made, request, chosen);
  const std::size_t values = null_values_of(chosen.map);
  const double sides = chosen.both ? 2 : 1;
  return {"p is counted among the " + Q_count_text(values) + " values of all voxels in " +
          Q_counted(std::size_t(made), "randomization", "randomizations") + ", of which " +
          Q_count_text(std::size_t(double(request.p) / sides * double(values))) +
          " lie beyond the threshold"};
}

/// Whether the studies were exchanged, in the place of moving peaks.
bool exchanged(const MethodsFacts& methods) {
  return !methods.term.empty() || methods.studies_with_images >= methods.studies;
}

std::string question_of_p(const MethodsFacts& methods) {
  if (!methods.term.empty())
    return "Does the effect here change with " + methods.term +
           " more than if its values had been dealt out to the studies by chance?";
  if (exchanged(methods))
    return "Do the studies' effects here lie on one side of 0 more than by chance?";
  return "Do the studies' peaks converge here more than if they lay anywhere?";
}

ClusterReport report_of(const Command& command, const ClusterResult& result,
                        const ThresholdRequest& request, const ZMap& map) {
  const ChosenP& chosen = map.chosen;
  MapFacts known = facts_of_map(chosen.map, all_verbs());
  MethodsFacts::Thresholds stated;
  stated.p = command.number(2);
  stated.peak_z = command.number(3);
  stated.extent = request.extent;
  stated.kind = chosen.kind;
  stated.both = chosen.both;
  known.methods.thresholds = stated;
  if (const std::size_t done = randomizations_of(chosen.map, 1); done > 0)
    known.methods.randomizations = done;
  ClusterReport report;
  report.facts = std::move(known.facts);
  report.facts.insert(report.facts.begin(),
                      {{"Map", request.map},
                       {"Thresholds", result.criteria},
                       {"Question of p", question_of_p(known.methods)},
                       {"Question of g", "How large is the effect here? With its 95 % interval."}});
  if (known.methods.analysis == MethodsFacts::Analysis::linear_model)
    report.facts.insert(report.facts.begin() + 1,
                        {"Coefficient", known.methods.term.empty()
                                            ? "the intercept: the effect where all terms are 0"
                                            : "of " + known.methods.term});
  if (const CertaintyOfP certainty = certainty_of_p(request, chosen, exchanged(known.methods));
      !certainty.text.empty())
    report.facts.push_back({"Certainty of p", certainty.text});
  report.studies = std::move(known.studies);
  report.explored = explored_map({.name = chosen.map,
                                  .mask = map.mask,
                                  .z = map.z,
                                  .p = map.p,
                                  .p_name = std::string(p_map_kinds[chosen.kind].heading) +
                                            (chosen.both ? ", two-tailed" : ", one-tailed"),
                                  .effects = map.effects ? &*map.effects : nullptr,
                                  .atlas = map.atlas});
  report.explored->studies = std::move(known.explored);
  add_image_places(report.explored->studies, map.mask, result.clusters);
  report.commands = std::move(known.commands);
  report.commands.push_back(command.text());
  report.methods = methods_of(known.methods);
  // Folders of earlier versions do not say which studies took part.
  if (known.methods.studies > 0) report.checked = known.methods;
  for (std::size_t kind = 1; kind + 1 < p_map_kinds.size(); ++kind)
    report.randomizations[kind] = randomizations_of(chosen.map, kind);
  return report;
}

/// How the clusters fare without one study each, where a jackknife has left its maps.
void add_runs(ClusterReport& report, const ThresholdRequest& request, const ZMap& map,
              std::span<const Cluster> clusters) {
  if (clusters.empty()) return;
  LeaveOneOut runs;
  try {
    runs = leave_one_out_of(map.chosen.map, all_verbs());
  } catch (const Refusal&) {
    // Maps can be thresholded after the files that they came from have gone.
    return;
  }
  if (!has_runs(runs)) return;
  try {
    check_runs(runs);
    report.without_one = threshold_runs(runs, request, map.chosen, map.mask, clusters).without;
  } catch (const Refusal& refusal) {
    report.without_one_fault = refusal.what();
  }
}

}  // namespace

void check_threshold(const Command& command) {
  prepare_threshold(threshold_request(command));
}

void run_threshold(const Command& command) {
  const ThresholdRequest request = threshold_request(command);
  ClusterResult result;
  result.map = request.map;
  result.base = threshold_base(request);
  Outputs outputs;
  Action action("Thresholding " + result.map);
  const ZMap map = prepare_threshold(request);
  result.criteria = criteria_text(request, map.chosen);
  result.z = beyond(map.mask, map.z, map.p, request.p);
  keep_clusters(result, {.extent = request.extent,
                         .keep = [&](const Cluster& cluster) { return survives(cluster, request); },
                         .tails = map.tails,
                         .atlas = map.atlas});
  action.finish();
  if (map.effects) add_effects(result.clusters, *map.effects);
  ClusterReport report = report_of(command, result, request, map);
  add_runs(report, request, map, result.clusters);
  write_result(outputs, command, result, std::move(report));
  outputs.commit();
  say_result(result);
  const MapFacts known = facts_of_map(map.chosen.map, all_verbs());
  if (const auto certainty = certainty_of_p(request, map.chosen, exchanged(known.methods));
      !certainty.enough)
    say(certainty.text + ".");
}

}  // namespace kvo::verbs
