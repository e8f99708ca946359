#include "engine/maps/meta_analysis.h"

#include <algorithm>

#include "engine/base/parallel.h"
#include "engine/base/progress.h"
#include "engine/base/refusal.h"
#include "engine/base/text_file.h"
#include "engine/studies/study_source.h"
#include "util/text.h"
#include "workspace/files/file_names.h"

namespace kvo::maps {

namespace {

[[noreturn]] void refuse_changed(const std::string& what) {
  throw Refusal(what + " since preprocessing. Please run preprocessing again.");
}

std::string recorded(const std::map<std::string, std::string>& facts, const std::string& key) {
  const auto found = facts.find(key);
  return found == facts.end() ? "" : found->second;
}

Member checked_member(const PpRecord& record, const Study& study) {
  const std::string facts = recorded(record.studies, study.name);
  if (facts.empty())
    throw Refusal("Study '" + study.name +
                  "' has not been preprocessed. Please run preprocessing again.");
  if (facts != table_facts(study))
    refuse_changed("The table's line of study '" + study.name + "' has changed (from " + facts +
                   " to " + table_facts(study) + ")");
  const auto [is_image, file] = study_source(study);
  const std::string checksum = recorded(record.checksums, file);
  if (checksum.empty()) refuse_changed("'" + file + "' has been added");
  StudyPeaks peaks;
  if (is_image)
    peaks.checksum = file_checksum(file);
  else
    peaks = read_peaks(study);
  if (peaks.checksum != checksum) refuse_changed("'" + file + "' has changed");
  return {study, std::move(peaks.peaks), is_image};
}

std::vector<float> read_unchanged_map(const PpRecord& record, const std::string& file,
                                      const Mask& mask) {
  const std::string checksum = recorded(record.checksums, file);
  if (checksum.empty())
    throw Refusal("'" + std::string(KVO_RECORD_FILE) + "' has no checksum of '" + file +
                  "', as an earlier version leaves it. Please run preprocessing again.");
  if (file_checksum(file) != checksum) refuse_changed("'" + file + "' has changed");
  return read_map(file, mask);
}

std::vector<const float*> pointers_at(const std::vector<std::vector<float>>& maps,
                                      std::size_t begin) {
  std::vector<const float*> pointers;
  pointers.reserve(maps.size());
  for (const std::vector<float>& map : maps) pointers.push_back(map.data() + begin);
  return pointers;
}

}  // namespace

std::string effect_map_file(const std::string& study) {
  return std::string(KVO_STUDY_MAPS_FOLDER) + "/" + map_file(study, g_map);
}

std::string variance_map_file(const std::string& study) {
  return std::string(KVO_STUDY_MAPS_FOLDER) + "/" + map_file(study, var_map);
}

MetaAnalysis open_meta_analysis(const StudyTable& table, std::span<const std::size_t> chosen) {
  MetaAnalysis meta;
  meta.record = read_pp_record();
  for (const std::size_t i : chosen)
    meta.members.push_back(checked_member(meta.record, table.studies[i]));
  const std::string path = mask_path(meta.record.mask);
  if (file_checksum(path) != recorded(meta.record.checksums, mask_file(meta.record.mask)))
    refuse_changed("The mask '" + meta.record.mask + "' has changed");
  meta.mask = read_mask(path);
  if (meta.record.anisotropy > 0) {
    const std::string& name = meta.record.correlation_template;
    const std::string correlation = template_path(name);
    if (file_checksum(correlation) != recorded(meta.record.checksums, template_file(name)))
      refuse_changed("The correlation template '" + name + "' has changed");
    meta.correlation = read_map(correlation, meta.mask);
  }
  return meta;
}

AnalysisFacts facts_of(const std::string& command, const MetaAnalysis& meta) {
  AnalysisFacts facts{.command = command, .studies = meta.members.size()};
  for (const Member& member : meta.members)
    facts.participants += participants_of(member.study.sample);
  return facts;
}

bool StudyMaps::copy_effects(std::size_t study, std::size_t begin, std::size_t voxels,
                             float* to) const {
  if (g[study].empty()) return of_peaks[study].copy(begin, voxels, to);
  std::copy_n(g[study].data() + begin, voxels, to);
  return true;
}

std::vector<const float*> StudyMaps::effects(std::size_t begin) const {
  return pointers_at(g, begin);
}

std::vector<const float*> StudyMaps::variances(std::size_t begin) const {
  return pointers_at(var, begin);
}

std::vector<float> read_effects(const PpRecord& record, const std::string& study,
                                const Mask& mask) {
  return read_unchanged_map(record, effect_map_file(study), mask);
}

std::vector<float> read_variances(const PpRecord& record, const std::string& study,
                                  const Mask& mask) {
  const std::string file = variance_map_file(study);
  std::vector<float> var = read_unchanged_map(record, file, mask);
  if (std::any_of(var.begin(), var.end(), [](float value) { return !(value > 0); }))
    throw Refusal("'" + file + "' has a variance in the mask that is not above 0.");
  return var;
}

StudyMaps read_study_maps(const MetaAnalysis& meta) {
  const std::size_t studies = meta.members.size();
  Action action("Reading the maps of " + Q_counted(studies, "study", "studies"), studies);
  StudyMaps maps(studies);
  in_parallel(studies, [&](std::size_t s, std::size_t) {
    const std::string& name = meta.members[s].study.name;
    std::vector<float> g = read_effects(meta.record, name, meta.mask);
    if (meta.members[s].has_image) {
      maps.g[s] = std::move(g);
      maps.var[s] = read_variances(meta.record, name, meta.mask);
    } else {
      maps.of_peaks[s] = SparseMap(g);
    }
    action.step();
  });
  action.finish();
  return maps;
}

}  // namespace kvo::maps
