// The mean map of the studies.

#include <algorithm>

#include "companions/common/outputs.h"
#include "companions/common/parallel.h"
#include "companions/common/progress.h"
#include "companions/kvo_core/meta_analysis.h"
#include "companions/kvo_core/pooling.h"
#include "companions/kvo_core/results.h"
#include "companions/kvo_core/verbs.h"

namespace {

// With fewer randomizations the smallest family-wise p that is possible is above 0.05.
constexpr std::size_t least_for_family_wise = 20;
constexpr std::size_t piece_voxels = 4096;

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

void write_maps(Outputs& outputs, const Command& command, const Mask& mask, const MeanMaps& maps,
                const NullDistribution& null, std::size_t randomizations) {
  struct Row {
    MapKind kind;
    const std::vector<float>& map;
  };
  const std::vector<float> p = null.p(), pFWE = null.p_family_wise();
  std::vector<Row> rows = {{g_map, maps.g},       {var_map, maps.var}, {z_map, maps.z}, {p_map, p},
                           {tau2_map, maps.tau2}, {I2_map, maps.I2},   {Q_map, maps.Q}};
  if (randomizations >= least_for_family_wise) rows.push_back({pFWE_map, pFWE});
  Action action("Writing the maps of " + command.name, rows.size());
  std::vector<std::string> paths;
  paths.reserve(rows.size());
  for (const Row& row : rows)
    paths.push_back(outputs.path_of(command.name + row.kind.suffix + ".nii.gz"));
  const std::string description = image_description(command.text());
  in_parallel(rows.size(), [&](std::size_t i, std::size_t) {
    write_map(paths[i], mask, rows[i].map, description, rows[i].kind.intent_code,
              rows[i].kind.outside);
    action.step();
  });
  action.finish();
}

}  // namespace

void check_mean(const Command& command) {
  open_for_mean(command);
}

void run_mean(const Command& command) {
  const MetaAnalysis meta = open_for_mean(command);
  Outputs outputs;
  if (meta.left_out > 0)
    say("The filter leaves out " + std::to_string(meta.left_out) + " of " +
        std::to_string(meta.left_out + meta.members.size()) + " studies");
  MeanMaps maps;
  {
    const StudyMaps studies = read_study_maps(meta);
    Action action("Calculating the mean of " + std::to_string(meta.members.size()) +
                  (meta.members.size() == 1 ? " study" : " studies"));
    maps = mean_of(studies, meta.mask.size());
    action.finish();
  }
  const NullDistribution null = randomized(
      meta, maps.z,
      [](auto g, auto var, std::size_t voxels, float* z) { pool(g, var, voxels, {.z = z}); });
  write_maps(outputs, command, meta.mask, maps, null, meta.record.randomizations);
  list_map(outputs, command.name, null);
  outputs.commit();
}
