// Preprocessing: from the studies' peaks and images to a map of effects and one of variances for
// each study.

#include <algorithm>
#include <optional>

#include "engine/base/outputs.h"
#include "engine/base/parallel.h"
#include "engine/base/progress.h"
#include "engine/base/text_file.h"
#include "engine/maps/effect_maps.h"
#include "engine/maps/folder_maps.h"
#include "engine/results/preprocessed.h"
#include "engine/studies/study_source.h"
#include "engine/verbs/verbs.h"
#include "util/text.h"
#include "workspace/files/file_names.h"

namespace kvo::verbs {

namespace {

// The same for every meta-analysis, so that the same inputs give the same results; whoever wants
// other random places changes it in the record.
constexpr std::uint64_t default_seed = 1;
constexpr std::size_t most_lines = 20;

/// A study and what it found; an image is read when its turn comes.
struct StudyInput {
  Study study;
  StudySource source;
  StudyPeaks peaks;  ///< none where the source is an image
};

struct PpInputs {
  PpRecord record;  ///< without the checksums of maps, which are still to be made
  Mask mask;
  std::vector<float> correlation;  ///< the template in the mask; none without anisotropy
  std::vector<StudyInput> studies;
};

/// What becomes of a study: its maps, and what there is to be said of them, "" for nothing.
struct StudyOutput {
  StudyMapFiles files;
  PeakMap kernels;
  std::string outside, doubts, gaps;
};

PpRecord requested(const Command& command) {
  PpRecord record;
  record.correlation_template = command.arguments[0];
  record.anisotropy = command.number(1);
  record.fwhm = command.number(2);
  record.mask = command.arguments[3];
  record.randomizations = std::size_t(command.number(4));
  record.seed = default_seed;
  return record;
}

StudyInput input_of(const Study& study) {
  StudyInput input{study, study_source(study), {}};
  if (input.source.is_image)
    input.peaks.checksum = file_checksum(input.source.file);
  else
    input.peaks = read_peaks(study);
  return input;
}

PpInputs prepare_pp(const Command& command) {
  PpInputs inputs{requested(command), {}, {}, {}};
  PpRecord& record = inputs.record;
  const std::string mask = mask_path(record.mask);
  inputs.mask = read_mask(mask);
  record.checksums[mask_file(record.mask)] = file_checksum(mask);
  if (record.anisotropy > 0) {
    const std::string path = template_path(record.correlation_template);
    inputs.correlation = read_map(path, inputs.mask);
    record.checksums[template_file(record.correlation_template)] = file_checksum(path);
  }
  const StudyTable table = read_study_table();
  record.checksums[KVO_TABLE_FILE] = file_checksum(KVO_TABLE_FILE);
  for (const Study& study : table.studies) {
    const StudyInput& input = inputs.studies.emplace_back(input_of(study));
    record.studies[study.name] = table_facts(study);
    record.checksums[input.source.file] = input.peaks.checksum;
  }
  return inputs;
}

/// How many peaks of a study lie where the analysis does not look, in words; "" for none.
std::string peaks_outside(const Study& study, const PeakMap& map, const Mask& mask) {
  std::size_t outside = 0, beyond = 0;
  for (const PlacedPeak& peak : map.peaks()) {
    if (mni_grid().holds(peak.voxel) && mask.inside[mni_grid().index(peak.voxel)]) continue;
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
void say_first(std::span<const StudyOutput> studies, std::string StudyOutput::*remark,
               const std::string& what) {
  std::vector<std::string> texts;
  for (const StudyOutput& study : studies)
    if (!(study.*remark).empty()) texts.push_back(study.*remark);
  const std::size_t listed = std::min(texts.size(), most_lines);
  for (std::size_t t = 0; t < listed; ++t) say(texts[t]);
  if (const std::size_t more = texts.size() - listed; more > 0)
    say("\u2026 and " + Q_counted(more, "more study", "more studies") + " " + what);
}

/// Remarks what is unclear about a study's image, and what it lacks.
void remark(const StudyImage& image, const Study& study, StudyOutput& output) {
  for (const std::string& doubt : image.doubts)
    output.doubts += (output.doubts.empty() ? image_file(study) + ": " : ". Also, ") + doubt;
  if (image.without_data > 0)
    output.gaps = study.name + ": no data in " + std::to_string(image.without_data) + " of " +
                  std::to_string(image.t.size()) + " voxels of the mask";
}

std::vector<float> effects_of(const StudyInput& input, const EffectMaps& effects, const Mask& mask,
                              StudyOutput& output) {
  if (!input.source.is_image) return effects.map_of(output.kernels);
  const StudyImage image = read_study_image(input.study, mask);
  remark(image, input.study, output);
  return effect_map(input.study, image);
}

/// Makes and writes the maps of the studies.
void make_maps(const PpInputs& inputs, const EffectMaps& effects, const std::string& description,
               std::vector<StudyOutput>& outputs) {
  const std::vector<StudyInput>& studies = inputs.studies;
  Action action("Preprocessing " + Q_counted(studies.size(), "study", "studies"), studies.size(),
                30);
  in_parallel(studies.size(), [&](std::size_t s, std::size_t) {
    const std::vector<float> g = effects_of(studies[s], effects, inputs.mask, outputs[s]);
    write_study_maps(outputs[s].files, studies[s].study, inputs.mask, g, description);
    action.step();
  });
  action.finish();
}

}  // namespace

void check_pp(const Command& command) {
  const PpInputs inputs = prepare_pp(command);
  in_parallel(inputs.studies.size(), [&](std::size_t s, std::size_t) {
    if (inputs.studies[s].source.is_image) read_study_image(inputs.studies[s].study, inputs.mask);
  });
}

void run_pp(const Command& command) {
  Outputs outputs;
  const PpInputs inputs = prepare_pp(command);
  const EffectMaps effects(inputs.record, inputs.mask, inputs.correlation);
  std::vector<StudyOutput> studies;
  for (const StudyInput& input : inputs.studies)
    studies.push_back(
        {place_study_maps(outputs, input.study), effects.around(input.peaks.peaks), {}, {}, {}});
  in_parallel(studies.size(), [&](std::size_t s, std::size_t) {
    studies[s].outside = peaks_outside(inputs.studies[s].study, studies[s].kernels, inputs.mask);
  });
  say_first(studies, &StudyOutput::outside, "with peaks outside of the mask");
  make_maps(inputs, effects, image_description(command.text()), studies);
  say_first(studies, &StudyOutput::doubts, "with images that are unclear");
  say_first(studies, &StudyOutput::gaps, "with images that lack data");
  std::vector<StudyMapFiles> files;
  for (StudyOutput& study : studies) files.push_back(std::move(study.files));
  write_preprocessed(outputs, inputs.record, files);
  outputs.commit();
}

}  // namespace kvo::verbs
