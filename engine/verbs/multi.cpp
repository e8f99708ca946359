// Where two meta-analyses agree, from their p maps alone.

#include <algorithm>
#include <string_view>

#include "engine/base/progress.h"
#include "engine/base/refusal.h"
#include "engine/base/wording.h"
#include "engine/inference/conjunction.h"
#include "engine/results/cluster_result.h"
#include "engine/results/results.h"
#include "engine/studies/study_rules.h"
#include "engine/verbs/verbs.h"
#include "util/text.h"

namespace kvo::verbs {

namespace {

/// The arguments by their meaning.
struct MultiRequest {
  std::string first, second;
  float p, peak_p;
  std::size_t extent;
  ConjunctionMode mode;
  std::string p_text, peak_text, mode_text;
};

MultiRequest multi_request(const Command& command) {
  MultiRequest request{.first = command.arguments[0],
                       .second = command.arguments[1],
                       .p = float(command.number(2)),
                       .peak_p = float(command.number(3)),
                       .extent = std::size_t(command.number(4)),
                       .mode = {.error = command.number(5) != 0,
                                .scenario = command.number(6) != 0,
                                .tolerable = command.number(7)},
                       .p_text = threshold_text(command.number(2), 5),
                       .peak_text = threshold_text(command.number(3), 5),
                       .mode_text = {}};
  request.mode_text = std::to_string(int(command.number(5))) + "_" +
                      std::to_string(int(command.number(6))) + "_" +
                      threshold_text(command.number(7), 5);
  return request;
}

std::string beginning_of(const MultiRequest& request) {
  return request.first + "_" + request.second + "_multi_";
}

std::string base_of(const MultiRequest& request) {
  return beginning_of(request) + "z_p_" + request.p_text + "_" + request.peak_text + "_" +
         std::to_string(request.extent) + "_" + request.mode_text;
}

/// Of the p of the conjunction. Not "..._p.nii.gz", which would pass for the p map of a
/// meta-analysis: 1 minus this is no p of the other direction.
std::string p_base_of(const MultiRequest& request) {
  return beginning_of(request) + "p_values_" + request.mode_text;
}

std::string p_file(const std::string& name) {
  return map_file(name, p_map);
}

void check_names(const MultiRequest& request) {
  if (request.first == request.second)
    throw Refusal("The two meta-analyses have the same name '" + request.first + "'.");
  check_no_mask(request.first);
  check_result_name(base_of(request));
  check_result_name(p_base_of(request));
}

struct MultiInputs {
  Image first, second;       ///< p maps
  std::vector<float> atlas;  ///< what clusters are described by
};

MultiInputs prepare_multi(const MultiRequest& request) {
  check_names(request);
  MultiInputs inputs{read_p_map(p_file(request.first)), read_p_map(p_file(request.second)), {}};
  const auto both = [&](std::size_t i) {
    return inputs.first.values[i] != 1 && inputs.second.values[i] != 1;
  };
  std::size_t common = 0;
  while (common < inputs.first.values.size() && !both(common)) ++common;
  if (common == inputs.first.values.size())
    throw Refusal("'" + p_file(request.first) + "' and '" + p_file(request.second) +
                  "' have no voxel in common: in each, one of them is 1.");
  inputs.atlas = read_atlas();
  return inputs;
}

void write_p(Outputs& outputs, const Command& command, const MultiRequest& request,
             const BothTails& tails) {
  Image image;
  image.grid = mni_grid();
  image.intent_code = p_map.intent_code;
  image.description = image_description(command.text());
  image.values = tails.positive[0];
  for (std::size_t i = 0; i < image.values.size(); ++i)
    image.values[i] = std::min(image.values[i], tails.negative[0][i]);
  write_image(outputs.path_of(image_file_of(p_base_of(request))), image);
}

std::string mode_words(const ConjunctionMode& mode) {
  if (!mode.error) return "simple overlap";
  if (!mode.scenario) return "error assumed in the p values";
  return "error assumed in the p values, as in a better scenario with a tolerable p of " +
         threshold_text(mode.tolerable, 5);
}

ClusterReport report_of(const Command& command, const MultiRequest& request,
                        const MultiInputs& inputs, const Conjunction& conjunction,
                        const std::string& criteria) {
  MethodsFacts methods;
  methods.analysis = MethodsFacts::Analysis::conjunction;
  methods.first = request.first;
  methods.second = request.second;
  methods.error_assumed = request.mode.error;
  methods.better_scenario = request.mode.error && request.mode.scenario;
  methods.tolerable_p = request.mode.tolerable;
  MethodsFacts::Thresholds thresholds;
  thresholds.p = command.number(2);
  thresholds.peak_p = command.number(3);
  thresholds.extent = request.extent;
  methods.thresholds = thresholds;
  ClusterReport report;
  const auto source = [](const std::string& name, const Image& image) {
    const std::string file = p_file(name);
    return image.description.empty() ? file : file + " (" + image.description + ")";
  };
  report.facts = {{"Meta-analysis 1", source(request.first, inputs.first)},
                  {"Meta-analysis 2", source(request.second, inputs.second)},
                  {"Conjunction", mode_words(request.mode)},
                  {"Thresholds", criteria},
                  {"Voxels with a p below 1 in both", std::to_string(conjunction.voxels)},
                  {"Program", program_text()}};
  report.commands = {command.text()};
  report.methods = methods_of(methods);
  return report;
}

/// Whether a voxel of the cluster has a p up to the limit.
bool has_p(const Cluster& cluster, const BothTails& tails, float limit) {
  const TailMaps& tail = cluster.positive ? tails.positive : tails.negative;
  return std::any_of(cluster.grid_index.begin(), cluster.grid_index.end(),
                     [&](std::uint32_t index) { return tail[0][index] <= limit; });
}

}  // namespace

void check_multi(const Command& command) {
  prepare_multi(multi_request(command));
}

void run_multi(const Command& command) {
  const MultiRequest request = multi_request(command);
  ClusterResult result;
  result.map = request.first + " and " + request.second;
  result.base = base_of(request);
  result.criteria = "p < " + request.p_text + ", peak p at most " + request.peak_text +
                    ", at least " + Q_counted(request.extent, "voxel", "voxels");
  Outputs outputs;
  Action action("Combining " + result.map);
  const MultiInputs inputs = prepare_multi(request);
  const Conjunction conjunction = conjunction_of(inputs.first, inputs.second, request.mode);
  result.z = conjunction_z(conjunction, request.p);
  keep_clusters(result, {.extent = request.extent,
                         .keep =
                             [&](const Cluster& cluster) {
                               return has_p(cluster, conjunction.tails, request.peak_p);
                             },
                         .tails = conjunction.tails,
                         .atlas = inputs.atlas});
  write_p(outputs, command, request, conjunction.tails);
  action.finish();
  write_result(outputs, command, result,
               report_of(command, request, inputs, conjunction, result.criteria));
  outputs.commit();
  say(std::to_string(conjunction.voxels) + " voxels take part, with a p below 1 in both; " +
      mode_words(request.mode));
  say_result(result);
  say("p:      " + image_file_of(p_base_of(request)));
}

}  // namespace kvo::verbs
