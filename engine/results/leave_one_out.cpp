#include "engine/results/leave_one_out.h"

#include <algorithm>
#include <cmath>
#include <string_view>

#include "engine/base/exists.h"
#include "engine/base/parallel.h"
#include "engine/base/progress.h"
#include "engine/base/refusal.h"
#include "engine/maps/folder_maps.h"
#include "engine/studies/study.h"
#include "util/text.h"
#include "workspace/files/file_names.h"
#include "workspace/files/jackknife_names.h"

namespace kvo::results {

namespace {

constexpr const char* repeat = " Please run the jackknife again.";

std::string z_file(const std::string& map) {
  return map_file(map, z_map);
}

std::string in_quotes_of(std::string_view text) {
  return "'" + std::string(text) + "'";
}

/// The filter of an analysis that is a mean.
std::string filter_of_mean(const std::string& analysis, const std::string& text,
                           std::span<const Verb> verbs) {
  const Command command = parse_command(text, verbs);
  if (command.verb->name == std::string_view("mean")) return command.arguments[0];
  throw Refusal(in_quotes_of(KVO_ANALYSES_FILE) + " says that '" + analysis + "' is of '" + text +
                "', but a jackknife is of a mean.");
}

/// A run without a study, of so many studies in all.
void check_run(const std::string& map, const std::string& study, std::size_t studies) {
  const std::string file = in_quotes_of(z_file(map));
  if (!path_exists(z_file(map)))
    throw Refusal("There is no run without study '" + study + "': " + file + " is missing." +
                  repeat);
  const std::vector<std::string> listed = read_map_list();
  const auto facts = read_analysis_facts(map);
  if (!facts || std::find(listed.begin(), listed.end(), map) == listed.end())
    throw Refusal(
        file + " is of an earlier preprocessing: the lists of the folder do not have it." + repeat);
  if (!facts->left_out.empty() && facts->left_out != study)
    throw Refusal(file + " is without study '" + facts->left_out + "', not without '" + study +
                  "'." + repeat);
  if (facts->studies + 1 != studies)
    throw Refusal(file + " is the mean of " + Q_counted(facts->studies, "study", "studies") +
                  ", not of " + std::to_string(studies - 1) + "." + repeat);
}

/// Where the peaks of the clusters stand in the mask.
std::vector<std::size_t> places_of_peaks(std::span<const Cluster> clusters, const Mask& mask) {
  std::vector<std::size_t> places;
  for (const Cluster& cluster : clusters) {
    const auto index = std::uint32_t(mni_grid().index(cluster.peaks.front().voxel));
    const auto found = std::lower_bound(mask.grid_index.begin(), mask.grid_index.end(), index);
    places.push_back(std::size_t(found - mask.grid_index.begin()));
  }
  return places;
}

std::vector<float> effects_at(const std::string& map, const Mask& mask,
                              std::span<const std::size_t> places) {
  const std::vector<float> g = read_map(map_file(map, g_map), mask);
  std::vector<float> effects;
  effects.reserve(places.size());
  for (const std::size_t place : places) effects.push_back(g[place]);
  return effects;
}

/// How often each voxel and each cluster survives.
struct Survivals {
  std::vector<std::uint32_t> positive, negative, of_cluster;
};

/// Counts a run's clusters.
void count_clusters(Survivals& survivals, std::span<const Cluster> found,
                    std::span<const Cluster> clusters) {
  std::vector<std::int8_t> direction(mni_grid().voxels());
  for (const Cluster& cluster : found)
    for (const std::uint32_t index : cluster.grid_index) {
      direction[index] = cluster.positive ? 1 : -1;
      ++(cluster.positive ? survivals.positive : survivals.negative)[index];
    }
  for (std::size_t c = 0; c < clusters.size(); ++c) {
    const std::int8_t own = clusters[c].positive ? 1 : -1;
    if (std::any_of(clusters[c].grid_index.begin(), clusters[c].grid_index.end(),
                    [&](std::uint32_t index) { return direction[index] == own; }))
      ++survivals.of_cluster[c];
  }
}

/// The effects are those of each run at the peak of cluster `c`.
ClusterWithoutOne cluster_without(const LeaveOneOut& runs, double g, std::size_t c,
                                  std::span<const std::vector<float>> effects) {
  ClusterWithoutOne each;
  each.g = g;
  each.lowest = each.highest = double(effects[0][c]);
  double largest_change = -1;
  for (std::size_t r = 0; r < effects.size(); ++r) {
    const double without = effects[r][c];
    each.lowest = std::min(each.lowest, without);
    each.highest = std::max(each.highest, without);
    if (std::abs(without - g) <= largest_change) continue;
    largest_change = std::abs(without - g);
    each.study = runs.studies[r];
    each.without = without;
  }
  return each;
}

void set_shares(LeaveOneOutMaps& maps, const Survivals& survivals) {
  const std::size_t voxels = survivals.positive.size();
  maps.share.resize(voxels);
  maps.signed_share.resize(voxels);
  for (std::size_t i = 0; i < voxels; ++i) {
    const std::uint32_t positive = survivals.positive[i], negative = survivals.negative[i];
    maps.share[i] = float(positive + negative) / float(maps.without.runs);
    maps.signed_share[i] = positive >= negative ? maps.share[i] : -maps.share[i];
  }
}

}  // namespace

LeaveOneOut leave_one_out_of(const std::string& analysis, std::span<const Verb> verbs) {
  const auto facts = read_analysis_facts(analysis);
  if (!facts)
    throw Refusal(in_quotes_of(KVO_ANALYSES_FILE) + " does not say which studies '" + analysis +
                  "' is of. Please estimate it again.");
  const std::string filter = filter_of_mean(analysis, facts->command, verbs);
  const StudyTable table = read_study_table();
  LeaveOneOut runs{analysis, {}, {}};
  for (const std::size_t s : filtered_studies(table, filter))
    runs.studies.push_back(table.studies[s].name);
  if (runs.studies.size() != facts->studies)
    throw Refusal(in_quotes_of(KVO_TABLE_FILE) + " has " +
                  Q_counted(runs.studies.size(), "study", "studies") + " for '" + analysis +
                  "', which is of " + std::to_string(facts->studies) +
                  ". Please estimate it again.");
  runs.maps = kvo_jackknife_names(analysis, runs.studies).maps;
  return runs;
}

bool has_runs(const LeaveOneOut& runs) {
  return std::any_of(runs.maps.begin(), runs.maps.end(),
                     [](const std::string& map) { return path_exists(z_file(map)); });
}

void check_runs(const LeaveOneOut& runs) {
  if (!has_runs(runs))
    throw Refusal("There are no runs of '" + runs.analysis + "' without one study each, such as '" +
                  z_file(runs.maps.front()) + "'. Please run its jackknife and try again.");
  for (std::size_t r = 0; r < runs.maps.size(); ++r)
    check_run(runs.maps[r], runs.studies[r], runs.studies.size());
}

LeaveOneOutMaps threshold_runs(const LeaveOneOut& runs, const ThresholdRequest& request,
                               const ChosenP& chosen, const Mask& mask,
                               std::span<const Cluster> clusters) {
  const std::size_t voxels = mni_grid().voxels();
  const std::vector<std::size_t> places = places_of_peaks(clusters, mask);
  const std::vector<float> g = effects_at(runs.analysis, mask, places);
  std::vector<std::vector<float>> effects(runs.maps.size());
  Survivals survivals{std::vector<std::uint32_t>(voxels), std::vector<std::uint32_t>(voxels),
                      std::vector<std::uint32_t>(clusters.size())};
  Action action(
      "Thresholding " + Q_counted(runs.maps.size(), "run", "runs") + " without one study each",
      runs.maps.size());
  in_parallel(runs.maps.size(), [&](std::size_t r, std::size_t) {
    const std::vector<Cluster> found = surviving_clusters(
        request, {.map = runs.maps[r], .kind = chosen.kind, .both = chosen.both}, mask);
    effects[r] = effects_at(runs.maps[r], mask, places);
#pragma omp critical(count_run)
    count_clusters(survivals, found, clusters);
    action.step();
  });
  action.finish();
  LeaveOneOutMaps maps;
  maps.without.runs = runs.maps.size();
  for (std::size_t c = 0; c < clusters.size(); ++c) {
    maps.without.clusters.push_back(cluster_without(runs, g[c], c, effects));
    maps.without.clusters.back().survived = survivals.of_cluster[c];
  }
  set_shares(maps, survivals);
  return maps;
}

}  // namespace kvo::results
