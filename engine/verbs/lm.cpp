// A linear model of the studies' maps. Its maps are called NAME_ and a digit for each term: all 0
// the intercept (the effect where every term is 0), a single 1 the coefficient of that term. What
// there is once for the whole model, the residual heterogeneity, stands beside the intercept's.

#include <algorithm>

#include "engine/base/outputs.h"
#include "engine/base/parallel.h"
#include "engine/base/progress.h"
#include "engine/inference/randomization.h"
#include "engine/maps/meta_analysis.h"
#include "engine/model/meta_regression.h"
#include "engine/model/study_model.h"
#include "engine/results/results.h"
#include "engine/verbs/verbs.h"

namespace kvo::verbs {

namespace {

using Map = std::vector<float>;

struct LinearModel {
  Model model;
  MetaAnalysis meta;
  std::size_t all = 0, filtered = 0;  ///< studies of the table; those that the filter leaves out
  std::vector<std::string> names;     ///< of the coefficients' maps
};

std::vector<std::string> map_names(const std::string& name, std::size_t terms) {
  const std::string intercept = name + "_" + std::string(terms, '0');
  std::vector<std::string> names(terms + 1, intercept);
  for (std::size_t t = 0; t < terms; ++t) names[t + 1][name.size() + 1 + t] = '1';
  return names;
}

LinearModel open_linear_model(const Command& command) {
  const StudyTable table = read_study_table();
  const std::vector<std::size_t> chosen = filtered_studies(table, command.arguments[1]);
  LinearModel linear;
  linear.all = table.studies.size();
  linear.filtered = linear.all - chosen.size();
  linear.model = read_model(table, command.arguments[0], chosen);
  linear.names = map_names(command.name, linear.model.terms.size());
  for (const std::string& name : linear.names) check_analysis_name(name, table);
  linear.meta = open_meta_analysis(table, linear.model.studies);
  return linear;
}

/// The maps of each coefficient, and of the model.
struct LinearModelMaps {
  std::vector<Map> g, var, z;
  Map tau2, I2, Q;

  LinearModelMaps(std::size_t coefficients, std::size_t voxels)
      : g(coefficients, Map(voxels)), var(g), z(g), tau2(voxels), I2(voxels), Q(voxels) {}
};

std::vector<float*> pointers_at(std::vector<Map>& maps, std::size_t begin) {
  std::vector<float*> pointers;
  pointers.reserve(maps.size());
  for (Map& map : maps) pointers.push_back(map.data() + begin);
  return pointers;
}

LinearModelMaps maps_of(const Design& design, const StudyMaps& studies, std::size_t voxels) {
  LinearModelMaps maps(design.coefficients(), voxels);
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
  return maps;
}

LinearModelMaps fitted(const Command& command, const LinearModel& linear) {
  const StudyMaps studies = read_study_maps(linear.meta);
  Action action("Fitting " + command.arguments[0] + " to " +
                std::to_string(linear.meta.members.size()) + " studies");
  LinearModelMaps maps = maps_of(linear.model.design, studies, linear.meta.mask.size());
  action.finish();
  return maps;
}

std::vector<NamedMap> named_maps(const LinearModel& linear, LinearModelMaps& maps,
                                 std::span<const NullDistribution> nulls) {
  std::vector<NamedMap> named;
  for (std::size_t j = 0; j < linear.names.size(); ++j) {
    const std::string& name = linear.names[j];
    named.push_back({name, g_map, std::move(maps.g[j])});
    named.push_back({name, var_map, std::move(maps.var[j])});
    named.push_back({name, z_map, std::move(maps.z[j])});
    add_p_maps(named, name, nulls[j], linear.meta.record.randomizations);
  }
  named.push_back({linear.names[0], tau2_map, std::move(maps.tau2)});
  named.push_back({linear.names[0], I2_map, std::move(maps.I2)});
  named.push_back({linear.names[0], Q_map, std::move(maps.Q)});
  return named;
}

}  // namespace

void check_lm(const Command& command) {
  open_linear_model(command);
}

void run_lm(const Command& command) {
  const LinearModel linear = open_linear_model(command);
  Outputs outputs;
  say_filtered(linear.filtered, linear.all);
  say_incomplete(linear.model);
  LinearModelMaps maps = fitted(command, linear);
  const std::vector<NullDistribution> nulls = randomized(
      linear.meta, maps.z, [&](auto g, auto var, std::size_t voxels, std::span<float* const> z) {
        fit_model_maps(linear.model.design, g, var, voxels, {.z = z});
      });
  const std::vector<NamedMap> named = named_maps(linear, maps, nulls);
  write_maps(outputs, command, linear.meta.mask, named);
  std::vector<ListedMap> listed;
  for (std::size_t j = 0; j < nulls.size(); ++j) listed.push_back({linear.names[j], nulls[j]});
  list_maps(outputs, listed, facts_of(command.text(), linear.meta));
  outputs.commit();
  for (std::size_t j = 0; j < nulls.size(); ++j)
    say(linear.names[j] + ": " +
        (j == 0 ? "where all terms are 0" : "the coefficient of " + linear.model.terms[j - 1]));
}

}  // namespace kvo::verbs
