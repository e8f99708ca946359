// Linear models of the studies' maps, and their mean, which is the model without terms. The map of
// the mean has the name of the command. Those of another model are called NAME_ and a digit for
// each term: all 0 the intercept (the effect where every term is 0), a single 1 the coefficient of
// that term. What there is once for the whole model, the heterogeneity, stands beside the
// intercept's.

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>

#include "engine/base/distributions.h"
#include "engine/base/exists.h"
#include "engine/base/outputs.h"
#include "engine/base/parallel.h"
#include "engine/base/progress.h"
#include "engine/base/refusal.h"
#include "engine/base/text_file.h"
#include "engine/base/wording.h"
#include "engine/inference/exchange.h"
#include "engine/inference/parts.h"
#include "engine/inference/relocation.h"
#include "engine/maps/folder_maps.h"
#include "engine/maps/meta_analysis.h"
#include "engine/model/joint_estimate.h"
#include "engine/model/meta_regression.h"
#include "engine/model/pooling.h"
#include "engine/model/study_model.h"
#include "engine/results/estimate_record.h"
#include "engine/results/leave_one_out.h"
#include "engine/results/results.h"
#include "engine/verbs/verbs.h"
#include "util/text.h"
#include "workspace/files/file_names.h"
#include "workspace/files/study_table.h"

namespace kvo::verbs {

namespace {

using Map = std::vector<float>;

/// What a command asks for.
struct ModelRequest {
  std::string name, terms, filter;
};

ModelRequest mean_request(const Command& command) {
  return {command.name, "", command.arguments[0]};
}

ModelRequest lm_request(const Command& command) {
  return {command.name, command.arguments[0], command.arguments[1]};
}

struct LinearModel {
  Model model;
  MetaAnalysis meta;
  std::size_t all = 0, filtered = 0;  ///< studies of the table; those that the filter leaves out
  std::string left_out;               ///< of a jackknife: the study that it is without
  std::vector<std::string> names;     ///< of the coefficients' maps
};

/// The study that a jackknife leaves out, which has no value of its variable; "" when that is not
/// one alone, as the filter of the jackknife may lack values too.
std::string left_out_study(const StudyTable& table) {
  const std::size_t column = required_column(table, KVO_JACKKNIFE_VARIABLE);
  std::vector<std::string> missing;
  for (const Study& study : table.studies)
    if (!study_number(table, study, column)) missing.push_back(study.name);
  return missing.size() == 1 ? missing.front() : "";
}

/// The studies of a jackknife's run that a batch repeats, when its variable has gone: those of the
/// mean that the folder has, but for the one that the run's name tells, which is set.
std::vector<std::size_t> replayed_studies(const StudyTable& table, const std::string& name,
                                          std::string& left_out) {
  for (const std::string& analysis : read_map_list()) {
    try {
      const LeaveOneOut runs = leave_one_out_of(analysis, all_verbs());
      const auto run = std::find(runs.maps.begin(), runs.maps.end(), name);
      if (run == runs.maps.end()) continue;
      left_out = runs.studies[std::size_t(run - runs.maps.begin())];
      std::vector<std::size_t> chosen;
      for (std::size_t s = 0; s < table.studies.size(); ++s) {
        const std::string& study = table.studies[s].name;
        if (study != left_out && std::ranges::count(runs.studies, study) > 0) chosen.push_back(s);
      }
      return chosen;
    } catch (const Refusal&) {
      // Not a mean, or of studies that are not known any more.
    }
  }
  throw Refusal("'" + name +
                "' is a run of a jackknife, but the folder has no mean that says of which studies. "
                "Please estimate that of all of them first, under the jackknife's name.");
}

LinearModel prepare_model(const ModelRequest& request) {
  const StudyTable table = read_study_table();
  const bool is_replay =
      request.filter == KVO_JACKKNIFE_VARIABLE && !table.column(KVO_JACKKNIFE_VARIABLE);
  std::string left_out;
  const std::vector<std::size_t> chosen = is_replay
                                              ? replayed_studies(table, request.name, left_out)
                                              : filtered_studies(table, request.filter);
  LinearModel linear;
  linear.all = table.studies.size();
  linear.filtered = linear.all - chosen.size();
  linear.left_out = left_out;
  if (request.filter == KVO_JACKKNIFE_VARIABLE && !is_replay)
    linear.left_out = left_out_study(table);
  linear.model = read_model(table, request.terms, chosen);
  linear.names = coefficient_map_names(request.name, linear.model.terms.size());
  for (const std::string& name : linear.names) check_analysis_name(name, table);
  linear.meta = open_meta_analysis(table, linear.model.studies);
  return linear;
}

/// The maps of each coefficient, and of the model.
struct LinearModelMaps {
  std::vector<Map> g, var, z, info;
  Map tau2, I2, Q;

  LinearModelMaps(std::size_t coefficients, std::size_t voxels)
      : g(coefficients, Map(voxels)),
        var(g),
        z(g),
        info(coefficients, Map(voxels, 1)),
        tau2(voxels),
        I2(voxels),
        Q(voxels) {}
};

std::vector<float*> pointers_at(std::vector<Map>& maps, std::size_t begin) {
  std::vector<float*> pointers;
  pointers.reserve(maps.size());
  for (Map& map : maps) pointers.push_back(map.data() + begin);
  return pointers;
}

void fit_images(const Design& design, const StudyMaps& studies, LinearModelMaps& maps) {
  const std::size_t voxels = maps.tau2.size();
  in_parallel((voxels + piece_voxels - 1) / piece_voxels, [&](std::size_t piece, std::size_t) {
    const std::size_t begin = piece * piece_voxels;
    const std::vector<float*> z = pointers_at(maps.z, begin), g = pointers_at(maps.g, begin),
                              var = pointers_at(maps.var, begin);
    fit_model_maps(design, studies.effects(begin), studies.variances(begin),
                   std::min(piece_voxels, voxels - begin),
                   {.z = z,
                    .g = g,
                    .var = var,
                    .tau2 = maps.tau2.data() + begin,
                    .I2 = maps.I2.data() + begin,
                    .Q = maps.Q.data() + begin});
  });
}

std::string doing(const ModelRequest& request, std::size_t studies) {
  const std::string count = Q_counted(studies, "study", "studies");
  return request.terms.empty() ? "Calculating the mean of " + count
                               : "Fitting " + request.terms + " to " + count;
}

/// The model in the maps of the studies.
struct Estimates {
  StudyMaps studies;
  LinearModelMaps maps;
  std::optional<JointFacts> joint;  ///< nothing where all the studies have images
  double tau2;                      ///< by which studies are weighted when p values are found
};

/// Has the estimates be those of the likelihood of the studies' peaks, and says so. Of the
/// heterogeneity is known what the images of a mean tell.
JointFacts estimate_from_peaks(const LinearModel& linear, const StudyMaps& studies,
                               LinearModelMaps& maps) {
  const MetaAnalysis& meta = linear.meta;
  const std::size_t voxels = meta.mask.size();
  JointEstimate joint = estimate_jointly(meta, linear.model.design, studies);
  maps.g = std::move(joint.g);
  maps.var = std::move(joint.var);
  maps.info = std::move(joint.info);
  for (std::size_t j = 0; j < maps.z.size(); ++j)
    for (std::size_t v = 0; v < voxels; ++v)
      maps.z[j][v] = maps.g[j][v] / std::sqrt(maps.var[j][v]);
  for (Map* map : {&maps.tau2, &maps.I2, &maps.Q})
    std::fill(map->begin(), map->end(), std::numeric_limits<float>::quiet_NaN());
  std::vector<const float*> g, var;
  for (std::size_t s = 0; s < meta.members.size(); ++s) {
    if (!meta.members[s].has_image) continue;
    g.push_back(studies.g[s].data());
    var.push_back(studies.var[s].data());
  }
  if (maps.z.size() == 1 && g.size() > 1) {
    Map z(voxels);
    pool(g, var, voxels,
         {.z = z.data(), .tau2 = maps.tau2.data(), .I2 = maps.I2.data(), .Q = maps.Q.data()});
  }
  return std::move(joint.facts);
}

/// One between-study variance for the whole map, by which the studies are weighted when p values
/// are found: the one that is assumed of the peaks, or else the mean of the images'.
double common_tau2(const LinearModelMaps& maps, const std::optional<JointFacts>& joint) {
  if (joint) return joint->chosen.assumptions.tau2;
  double sum = 0;
  for (const float tau2 : maps.tau2) sum += double(tau2);
  return sum / double(maps.tau2.size());
}

/// The randomizations of a coefficient; nothing when this process makes a part of them, whose tally
/// is then in `part`.
std::optional<TestedMap> tested_coefficient(const LinearModel& linear, const Estimates& estimates,
                                            std::size_t j, const Shared& shared, Tally& part) {
  const Design& design = linear.model.design;
  if (j == 0 && estimates.joint)
    return tested_by_relocation({.meta = linear.meta,
                                 .design = design,
                                 .studies = estimates.studies,
                                 .tau2 = estimates.tau2},
                                shared, part);
  return tested_by_exchange({.meta = linear.meta,
                             .design = design,
                             .coefficient = j,
                             .name = j == 0 ? "" : linear.model.terms[j - 1],
                             .studies = estimates.studies,
                             .tau2 = estimates.tau2},
                            shared, part);
}

Estimates estimates_of(const ModelRequest& request, const LinearModel& linear) {
  const Design& design = linear.model.design;
  const MetaAnalysis& meta = linear.meta;
  Estimates estimates{
      read_study_maps(meta), {design.coefficients(), meta.mask.size()}, std::nullopt, 0};
  if (has_peaks(meta)) {
    estimates.joint = estimate_from_peaks(linear, estimates.studies, estimates.maps);
  } else {
    Action action(doing(request, meta.members.size()));
    fit_images(design, estimates.studies, estimates.maps);
    action.finish();
  }
  estimates.tau2 = common_tau2(estimates.maps, estimates.joint);
  return estimates;
}

/// A key of what randomizations depend on: the version, the command, what preprocessing was made
/// of, and which studies take part with which values. The studies' weights follow from these and
/// from how peaks are listed, which the table may say otherwise since.
std::string key_of(const Command& command, const LinearModel& linear) {
  std::string text = program_text() + "\n" + command.text() + "\n" + file_checksum(KVO_RECORD_FILE);
  for (std::size_t s = 0; s < linear.meta.members.size(); ++s) {
    const Study& study = linear.meta.members[s].study;
    text += "\n" + study.name + " " + std::to_string(study.peaks_per_cluster.value_or(-1)) + " " +
            text_of(study.peak_distance.value_or(-1)) + " " +
            text_of(study.cluster_extent.value_or(-1));
    for (const double value : linear.model.design.columns.row(Eigen::Index(s)))
      text += " " + text_of(value);
  }
  return Q_sha256(text);
}

/// Makes a part of the randomizations and leaves its file alone.
void run_part(const Command& command, const ModelRequest& request, const Part& part) {
  const Q_fd folder = share_folder();
  const LinearModel linear = prepare_model(request);
  const Estimates estimates = estimates_of(request, linear);
  std::vector<Tally> tallies(linear.names.size());
  for (std::size_t j = 0; j < tallies.size(); ++j)
    tested_coefficient(linear, estimates, j, {.only = part, .made = {}, .tallies = {}}, tallies[j]);
  write_part(command.name, part, key_of(command, linear), tallies);
  say("The file '" + part_file(command.name, part) + "' has this part of the randomizations.");
  say("With the files of the parts in this folder the command without " +
      std::string(part_variable) + " brings them together.");
}

/// A limit of the 95 % interval: the upper one with a sign of 1, the lower one with -1.
Map limit_of(const Map& g, const Map& var, float sign) {
  Map limit(g.size());
  for (std::size_t v = 0; v < g.size(); ++v)
    limit[v] = g[v] + sign * float(normal_quantile(0.975)) * std::sqrt(var[v]);
  return limit;
}

std::vector<NamedMap> named_maps(const LinearModel& linear, LinearModelMaps maps,
                                 const std::vector<TestedMap>& tested) {
  std::vector<NamedMap> named;
  for (std::size_t j = 0; j < linear.names.size(); ++j) {
    const std::string& name = linear.names[j];
    Map low = limit_of(maps.g[j], maps.var[j], -1), high = limit_of(maps.g[j], maps.var[j], 1);
    named.push_back({name, g_map, std::move(maps.g[j])});
    named.push_back({name, var_map, std::move(maps.var[j])});
    named.push_back({name, z_map, std::move(maps.z[j])});
    named.push_back({name, ci_low_map, std::move(low)});
    named.push_back({name, ci_high_map, std::move(high)});
    named.push_back({name, info_map, std::move(maps.info[j])});
    add_p_maps(named, name, tested[j]);
  }
  named.push_back({linear.names[0], tau2_map, std::move(maps.tau2)});
  named.push_back({linear.names[0], I2_map, std::move(maps.I2)});
  named.push_back({linear.names[0], Q_map, std::move(maps.Q)});
  return named;
}

/// Leaves the record of the estimate, or has that of an earlier one removed.
void leave_record(Outputs& outputs, const LinearModel& linear,
                  const std::optional<JointFacts>& facts) {
  for (const std::string& name : linear.names) {
    const std::string file = estimate_record_file(name);
    if (facts)
      outputs.write_text(file, estimate_record(estimate_facts(*facts)));
    else if (path_exists(file))
      outputs.remove(file);
  }
}

/// Fits the model and leaves its maps. Parts of the randomizations that others have made are gone
/// then.
void leave_maps(const Command& command, const ModelRequest& request, const LinearModel& linear,
                Outputs& outputs) {
  const std::size_t coefficients = linear.names.size();
  // Before anything takes long, as they may be damaged.
  const Shared shared = read_parts(command.name, key_of(command, linear), coefficients);
  Estimates estimates = estimates_of(request, linear);
  std::vector<TestedMap> tested;
  std::vector<ListedMap> listed;
  for (std::size_t j = 0; j < coefficients; ++j) {
    Tally own;
    tested.push_back(*tested_coefficient(linear, estimates, j, shared, own));
  }
  for (std::size_t j = 0; j < coefficients; ++j) listed.push_back({linear.names[j], tested[j]});
  write_maps(outputs, command, linear.meta.mask,
             named_maps(linear, std::move(estimates.maps), tested));
  leave_record(outputs, linear, estimates.joint);
  AnalysisFacts facts = facts_of(command.text(), linear.meta);
  facts.left_out = linear.left_out;
  list_maps(outputs, listed, facts);
  for (const MadePart& part : shared.made) outputs.remove(part.file);
  outputs.commit();
  if (estimates.joint)
    for (const Fact& fact : estimate_facts(*estimates.joint)) say(fact.label + ": " + fact.text);
}

void run_model(const Command& command, const ModelRequest& request) {
  if (const std::optional<Part> part = asked_part()) return run_part(command, request, *part);
  Outputs outputs;
  const LinearModel linear = prepare_model(request);
  say_filtered(linear.filtered, linear.all);
  say_incomplete(linear.model);
  leave_maps(command, request, linear, outputs);
  for (std::size_t j = 0; !linear.model.terms.empty() && j < linear.names.size(); ++j)
    say(linear.names[j] + ": " +
        (j == 0 ? "where all terms are 0" : "the coefficient of " + linear.model.terms[j - 1]));
}

}  // namespace

void check_mean(const Command& command) {
  prepare_model(mean_request(command));
}

void run_mean(const Command& command) {
  run_model(command, mean_request(command));
}

void check_lm(const Command& command) {
  prepare_model(lm_request(command));
}

void run_lm(const Command& command) {
  run_model(command, lm_request(command));
}

}  // namespace kvo::verbs
