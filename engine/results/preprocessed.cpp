#include "engine/results/preprocessed.h"

#include <algorithm>
#include <filesystem>

#include "engine/base/text_file.h"
#include "engine/maps/folder_maps.h"
#include "engine/maps/meta_analysis.h"
#include "engine/results/results.h"
#include "workspace/files/file_names.h"

namespace kvo::results {

namespace {

/// Has the maps removed that earlier preprocessing has left of studies that are no longer there.
void remove_old_study_maps(Outputs& outputs) {
  std::error_code ignored;
  std::vector<std::string> names;
  const std::string folder = KVO_STUDY_MAPS_FOLDER;
  for (const auto& entry : std::filesystem::directory_iterator(folder, ignored))
    names.push_back(entry.path().filename());
  std::sort(names.begin(), names.end());
  for (const std::string& name : names)
    if (name.ends_with(map_file("", g_map)) || name.ends_with(map_file("", var_map)))
      outputs.remove(folder + "/" + name);
}

}  // namespace

StudyMapFiles place_study_maps(Outputs& outputs, const Study& study) {
  return {.study = study.name,
          .effects_path = outputs.path_of(effect_map_file(study.name)),
          .variances_path = outputs.path_of(variance_map_file(study.name)),
          .effects_checksum = {},
          .variances_checksum = {}};
}

void write_study_maps(StudyMapFiles& files, const Study& study, const Mask& mask,
                      std::span<const float> g, const std::string& description) {
  const VarianceOfG variance = variance_of_g(study.sample);
  std::vector<float> var;
  var.reserve(g.size());
  for (const float value : g) var.push_back(float(variance.at(value)));
  const auto write = [&](const std::string& path, const MapKind& kind, std::span<const float> map) {
    write_map(path, mask, map, {.description = description, .intent_code = kind.intent_code});
    return file_checksum(path);
  };
  files.effects_checksum = write(files.effects_path, g_map, g);
  files.variances_checksum = write(files.variances_path, var_map, var);
}

void write_preprocessed(Outputs& outputs, PpRecord record, std::span<const StudyMapFiles> maps) {
  remove_listed_maps(outputs);
  remove_old_study_maps(outputs);
  for (const StudyMapFiles& files : maps) {
    record.checksums[effect_map_file(files.study)] = files.effects_checksum;
    record.checksums[variance_map_file(files.study)] = files.variances_checksum;
  }
  outputs.write_text(KVO_RECORD_FILE, record.text());
  outputs.write_text(KVO_MAPS_FILE, "");
  outputs.write_text(KVO_ND_FILE, empty_null_list());
  outputs.write_text(KVO_ANALYSES_FILE, empty_analysis_list());
}

}  // namespace kvo::results
