// The mean map of the studies.

#include <algorithm>

#include "engine/base/outputs.h"
#include "engine/base/parallel.h"
#include "engine/base/progress.h"
#include "engine/inference/randomization.h"
#include "engine/maps/meta_analysis.h"
#include "engine/model/pooling.h"
#include "engine/results/results.h"
#include "engine/verbs/verbs.h"

namespace kvo::verbs {

namespace {

MetaAnalysis open_for_mean(const Command& command) {
  check_analysis_name(command.name, read_study_table());
  return open_meta_analysis(command.arguments[0]);
}

struct MeanMaps {
  std::vector<float> g, var, z, tau2, I2, Q;
};

MeanMaps mean_of(const StudyMaps& studies, std::size_t voxels) {
  const std::vector<float> empty(voxels);
  MeanMaps maps{empty, empty, empty, empty, empty, empty};
  in_parallel((voxels + piece_voxels - 1) / piece_voxels, [&](std::size_t piece, std::size_t) {
    const std::size_t begin = piece * piece_voxels;
    pool(studies.effects(begin), studies.variances(begin), std::min(piece_voxels, voxels - begin),
         {.z = maps.z.data() + begin,
          .g = maps.g.data() + begin,
          .var = maps.var.data() + begin,
          .tau2 = maps.tau2.data() + begin,
          .I2 = maps.I2.data() + begin,
          .Q = maps.Q.data() + begin});
  });
  return maps;
}

}  // namespace

void check_mean(const Command& command) {
  open_for_mean(command);
}

void run_mean(const Command& command) {
  const MetaAnalysis meta = open_for_mean(command);
  Outputs outputs;
  say_filtered(meta.left_out, meta.left_out + meta.members.size());
  MeanMaps maps;
  {
    const StudyMaps studies = read_study_maps(meta);
    Action action("Calculating the mean of " + std::to_string(meta.members.size()) +
                  (meta.members.size() == 1 ? " study" : " studies"));
    maps = mean_of(studies, meta.mask.size());
    action.finish();
  }
  const NullDistribution null =
      std::move(randomized(meta, std::span(&maps.z, 1),
                           [](auto g, auto var, std::size_t voxels, std::span<float* const> z) {
                             pool(g, var, voxels, {.z = z[0]});
                           })
                    .front());
  const std::string& name = command.name;
  std::vector<NamedMap> named = {
      {name, g_map, std::move(maps.g)},   {name, var_map, std::move(maps.var)},
      {name, z_map, std::move(maps.z)},   {name, tau2_map, std::move(maps.tau2)},
      {name, I2_map, std::move(maps.I2)}, {name, Q_map, std::move(maps.Q)}};
  add_p_maps(named, name, null, meta.record.randomizations);
  write_maps(outputs, command, meta.mask, named);
  const ListedMap listed[] = {{name, null}};
  list_maps(outputs, listed, facts_of(command.text(), meta));
  outputs.commit();
}

}  // namespace kvo::verbs
