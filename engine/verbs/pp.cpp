// Preprocessing: from the studies' peaks and images to a map of effects and one of variances for
// each study.

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <optional>

#include "engine/base/outputs.h"
#include "engine/base/parallel.h"
#include "engine/base/progress.h"
#include "engine/base/text_file.h"
#include "engine/maps/meta_analysis.h"
#include "engine/maps/path_map.h"
#include "engine/maps/peak_map.h"
#include "engine/results/results.h"
#include "engine/studies/study_image.h"
#include "engine/studies/study_source.h"
#include "engine/verbs/verbs.h"

namespace kvo::verbs {

namespace {

// The same for every meta-analysis, so that the same inputs give the same results; whoever wants
// other random places changes it in the record.
constexpr std::uint64_t default_seed = 1;
constexpr std::size_t most_lines = 20;

struct Inputs {
  PpRecord record;
  StudyTable table;
  std::vector<StudySource> sources;  ///< of each study
  std::vector<StudyPeaks> peaks;     ///< of each study; none where the source is an image
  Mask mask;
  std::vector<float> correlation;  ///< the template in the mask; none without anisotropy
};

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
    const StudySource& source = inputs.sources.emplace_back(study_source(study));
    StudyPeaks& peaks = inputs.peaks.emplace_back();
    if (source.is_image)
      peaks.checksum = file_checksum(source.file);
    else
      peaks = read_peaks(study);
    record.studies[study.name] = map_facts(study);
    record.checksums[source.file] = peaks.checksum;
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

/// Says what there is to be said of some studies: of the first each, and how many more there are.
/// A text of "" is passed over.
void say_first(std::vector<std::string> texts, const std::string& what) {
  std::erase(texts, "");
  const std::size_t listed = std::min(texts.size(), most_lines);
  for (std::size_t t = 0; t < listed; ++t) say(texts[t]);
  if (const std::size_t more = texts.size() - listed; more > 0)
    say("\u2026 and " + std::to_string(more) + " more " + (more == 1 ? "study" : "studies") + " " +
        what);
}

void report_outside(const std::vector<Study>& studies, const std::vector<PeakMap>& maps,
                    const Mask& mask) {
  std::vector<std::string> texts(studies.size());
  in_parallel(studies.size(), [&](std::size_t s, std::size_t) {
    texts[s] = peaks_outside(studies[s], maps[s], mask);
  });
  say_first(std::move(texts), "with peaks outside of the mask");
}

std::vector<float> effects_of(const PeakMap& map, const std::optional<PathMap>& paths,
                              const Mask& mask) {
  std::vector<Voxel> voxels;
  for (const PlacedPeak& peak : map.peaks()) voxels.push_back(peak.voxel);
  std::vector<float> g(mask.size());
  if (paths) {
    PathMap::Room room(*paths);
    paths->effects(map.peaks(), voxels, room, g.data());
  } else {
    PeakMap::Plane plane;
    for (std::size_t k = 0; k < mask.slices(); ++k)
      map.effects(voxels, int(k), mask, plane, g.data() + mask.slice_begin[k]);
  }
  return g;
}

/// Where the image has no data the effect is 0, as where no peak reaches.
std::vector<float> effects_of(const Study& study, const StudyImage& image) {
  const double g_of_t = hedges_g(1, study.sample);
  std::vector<float> g;
  g.reserve(image.t.size());
  for (const float t : image.t) g.push_back(std::isnan(t) ? 0 : float(g_of_t * double(t)));
  return g;
}

/// What there is to be said of the images, a text for each study.
struct ImageRemarks {
  std::vector<std::string> doubts, gaps;

  explicit ImageRemarks(std::size_t studies) : doubts(studies), gaps(studies) {}

  void add(std::size_t s, const Study& study, const StudyImage& image) {
    for (const std::string& doubt : image.doubts)
      doubts[s] += (doubts[s].empty() ? image_file(study) + ": " : ". Also, ") + doubt;
    if (image.without_data > 0)
      gaps[s] = study.name + ": no data in " + std::to_string(image.without_data) + " of " +
                std::to_string(image.t.size()) + " voxels of the mask";
  }
  void say_all() {
    say_first(std::move(doubts), "with images that are unclear");
    say_first(std::move(gaps), "with images that lack data");
  }
};

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
  const Inputs inputs = read_inputs(command);
  in_parallel(inputs.sources.size(), [&](std::size_t s, std::size_t) {
    if (inputs.sources[s].is_image) read_study_image(inputs.table.studies[s], inputs.mask);
  });
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
  ImageRemarks remarks(studies.size());
  std::vector<std::string> sums(paths.size());
  in_parallel(studies.size(), [&](std::size_t s, std::size_t) {
    std::vector<float> map;
    if (inputs.sources[s].is_image) {
      const StudyImage image = read_study_image(studies[s], inputs.mask);
      remarks.add(s, studies[s], image);
      map = effects_of(studies[s], image);
    } else {
      map = effects_of(maps[s], graph, inputs.mask);
    }
    write_map(paths[2 * s], inputs.mask, map, description, g_map.intent_code);
    const VarianceOfG variance = variance_of_g(studies[s].sample);
    for (float& value : map) value = float(variance.at(value));
    write_map(paths[2 * s + 1], inputs.mask, map, description, var_map.intent_code);
    for (const std::size_t p : {2 * s, 2 * s + 1}) sums[p] = file_checksum(paths[p]);
    action.step();
  });
  action.finish();
  remarks.say_all();
  remove_listed_maps(outputs);
  remove_old_study_maps(outputs);
  PpRecord record = inputs.record;
  for (std::size_t s = 0; s < studies.size(); ++s) {
    record.checksums[effect_map_file(studies[s].name)] = sums[2 * s];
    record.checksums[variance_map_file(studies[s].name)] = sums[2 * s + 1];
  }
  outputs.write_text(pp_record_file, record.text());
  outputs.write_text(map_list_file, "");
  outputs.write_text(null_list_file, empty_null_list());
  outputs.write_text(analysis_list_file, empty_analysis_list());
  outputs.commit();
}

}  // namespace kvo::verbs
