// Preprocessing: from the studies' peaks to a map of effects and one of variances for each study.

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <optional>

#include "companions/common/error.h"
#include "companions/common/outputs.h"
#include "companions/common/parallel.h"
#include "companions/common/progress.h"
#include "companions/common/text_file.h"
#include "companions/kvo_core/meta_analysis.h"
#include "companions/kvo_core/path_map.h"
#include "companions/kvo_core/peak_map.h"
#include "companions/kvo_core/results.h"
#include "companions/kvo_core/verbs.h"

namespace {

// The same for every meta-analysis, so that the same inputs give the same results; whoever wants
// other random places changes it in the record.
constexpr std::uint64_t default_seed = 1;
constexpr std::size_t most_lines_outside = 20;

struct Inputs {
  PpRecord record;
  StudyTable table;
  std::vector<StudyPeaks> peaks;  ///< of each study
  Mask mask;
  std::vector<float> correlation;  ///< the template in the mask; none without anisotropy
};

bool exists(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0;
}

/// The files of a study must say clearly what it found: there is a peaks file, and nothing else.
void check_study_files(const Study& study) {
  const std::string peaks = peaks_file(study), image = study.name + ".nii.gz";
  const bool has_peaks = exists(peaks), has_image = exists(image);
  if (!has_peaks && !has_image)
    throw Refusal("Study '" + study.name + "' has no peaks file '" + peaks + "' and no image '" +
                  image + "'.");
  if (has_peaks && has_image)
    throw Refusal("Study '" + study.name + "' has both a peaks file '" + peaks +
                  "' and an image '" + image + "'. Please keep one of them.");
  if (has_image)
    throw Refusal("Study '" + study.name + "' has an image '" + image +
                  "'; this version reads peaks files only.");
}

Inputs read_inputs(const Command& command) {
  Inputs inputs;
  PpRecord& record = inputs.record;
  record.correlation_template = command.arguments[0];
  record.anisotropy = command.number(1);
  record.fwhm = command.number(2);
  record.mask = command.arguments[3];
  record.randomizations = std::size_t(command.number(4));
  record.seed = default_seed;
  const std::string mask = mask_path(record.mask);
  inputs.mask = read_mask(mask);
  record.checksums["mask_" + record.mask + ".nii.gz"] = file_checksum(mask);
  if (record.anisotropy > 0) {
    const std::string path = template_path(record.correlation_template);
    inputs.correlation = read_map(path, inputs.mask);
    record.checksums[template_file(record.correlation_template)] = file_checksum(path);
  }
  inputs.table = read_study_table();
  record.checksums[study_table_file] = file_checksum(study_table_file);
  for (const Study& study : inputs.table.studies) {
    check_study_files(study);
    inputs.peaks.push_back(read_peaks(study));
    record.studies[study.name] = map_facts(study);
    record.checksums[peaks_file(study)] = inputs.peaks.back().checksum;
  }
  return inputs;
}

/// How many peaks of a study lie where the analysis does not look, in words; "" for none.
std::string peaks_outside(const Study& study, const PeakMap& map, const Mask& mask) {
  const auto [nx, ny, nz] = mni_grid().size;
  std::size_t outside = 0, beyond = 0;
  for (const PlacedPeak& peak : map.peaks()) {
    const auto [i, j, k] = peak.voxel;
    const bool on_grid = i >= 0 && i < nx && j >= 0 && j < ny && k >= 0 && k < nz;
    if (on_grid && mask.inside[mni_grid().index(i, j, k)]) continue;
    ++outside;
    if (!map.reaches(peak, mask)) ++beyond;
  }
  if (outside == 0) return "";
  std::string text = study.name + ": " + std::to_string(outside) + " of " +
                     std::to_string(map.peaks().size()) +
                     (outside == 1 ? " peaks lies" : " peaks lie") + " outside of the mask";
  if (beyond > 0) text += ", " + std::to_string(beyond) + " of them too far away to reach it";
  return text;
}

/// Says which studies have peaks outside of the mask: each of the first, and how many more.
void report_outside(const std::vector<Study>& studies, const std::vector<PeakMap>& maps,
                    const Mask& mask) {
  std::vector<std::string> texts(studies.size());
  in_parallel(studies.size(), [&](std::size_t s, std::size_t) {
    texts[s] = peaks_outside(studies[s], maps[s], mask);
  });
  std::erase(texts, "");
  const std::size_t listed = std::min(texts.size(), most_lines_outside);
  for (std::size_t t = 0; t < listed; ++t) say(texts[t]);
  if (const std::size_t more = texts.size() - listed; more > 0)
    say("\u2026 and " + std::to_string(more) + " more " + (more == 1 ? "study" : "studies") +
        " with peaks outside of the mask");
}

/// The maps of a study: its effects, and their variances.
struct StudyMapPair {
  std::vector<float> g, var;
};

StudyMapPair maps_of(const Study& study, const PeakMap& map, const std::optional<PathMap>& paths,
                     const Mask& mask) {
  std::vector<Voxel> voxels;
  for (const PlacedPeak& peak : map.peaks()) voxels.push_back(peak.voxel);
  StudyMapPair maps{std::vector<float>(mask.size()), std::vector<float>(mask.size())};
  if (paths) {
    PathMap::Room room(*paths);
    paths->effects(map.peaks(), voxels, room, maps.g.data());
  } else {
    PeakMap::Plane plane;
    for (std::size_t k = 0; k < mask.slices(); ++k)
      map.effects(voxels, int(k), mask, plane, maps.g.data() + mask.slice_begin[k]);
  }
  const VarianceOfG variance = variance_of_g(study.sample);
  std::transform(maps.g.begin(), maps.g.end(), maps.var.begin(),
                 [&](float g) { return float(variance.at(g)); });
  return maps;
}

/// Has the maps removed that earlier preprocessing has left of studies that are no longer there.
void remove_old_study_maps(Outputs& outputs) {
  std::error_code ignored;
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator("pp", ignored))
    names.push_back(entry.path().filename());
  std::sort(names.begin(), names.end());
  for (const std::string& name : names)
    if (name.ends_with("_g.nii.gz") || name.ends_with("_var.nii.gz")) outputs.remove("pp/" + name);
}

}  // namespace

void check_pp(const Command& command) {
  read_inputs(command);
}

void run_pp(const Command& command) {
  const Inputs inputs = read_inputs(command);
  const std::vector<Study>& studies = inputs.table.studies;
  Outputs outputs;
  std::vector<std::string> paths;
  std::vector<PeakMap> maps;
  const double fwhm = reaching_fwhm(inputs.record.fwhm, inputs.record.anisotropy);
  for (std::size_t s = 0; s < studies.size(); ++s) {
    paths.push_back(outputs.path_of(effect_map_file(studies[s].name)));
    paths.push_back(outputs.path_of(variance_map_file(studies[s].name)));
    maps.emplace_back(fwhm, inputs.peaks[s].peaks);
  }
  report_outside(studies, maps, inputs.mask);
  std::optional<PathMap> graph;
  if (inputs.record.anisotropy > 0)
    graph.emplace(inputs.mask, inputs.correlation, inputs.record.fwhm, inputs.record.anisotropy);
  Action action("Preprocessing " + std::to_string(studies.size()) +
                    (studies.size() == 1 ? " study" : " studies"),
                studies.size(), 30);
  const std::string description = image_description(command.text());
  in_parallel(studies.size(), [&](std::size_t s, std::size_t) {
    const StudyMapPair pair = maps_of(studies[s], maps[s], graph, inputs.mask);
    write_map(paths[2 * s], inputs.mask, pair.g, description, g_map.intent_code);
    write_map(paths[2 * s + 1], inputs.mask, pair.var, description, var_map.intent_code);
    action.step();
  });
  action.finish();
  remove_listed_maps(outputs);
  remove_old_study_maps(outputs);
  outputs.write_text(pp_record_file, inputs.record.text());
  outputs.write_text(map_list_file, "");
  outputs.write_text(null_list_file, empty_null_list());
  outputs.write_text(analysis_list_file, empty_analysis_list());
  outputs.commit();
}
