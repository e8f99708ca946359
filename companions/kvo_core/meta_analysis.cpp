#include "companions/kvo_core/meta_analysis.h"

#include <algorithm>
#include <memory>

#include "companions/common/error.h"
#include "companions/common/parallel.h"
#include "companions/common/progress.h"
#include "companions/common/text_file.h"
#include "companions/kvo_core/path_map.h"
#include "companions/kvo_core/peak_map.h"

namespace {

constexpr std::size_t randomization_dots = 30;

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
  if (facts != map_facts(study))
    refuse_changed("The table's line of study '" + study.name + "' has changed (from " + facts +
                   " to " + map_facts(study) + ")");
  StudyPeaks peaks = read_peaks(study);
  if (peaks.checksum != recorded(record.checksums, peaks_file(study)))
    refuse_changed("'" + peaks_file(study) + "' has changed");
  return {study, std::move(peaks.peaks)};
}

std::vector<const float*> pointers_at(const std::vector<std::vector<float>>& maps,
                                      std::size_t begin) {
  std::vector<const float*> pointers;
  pointers.reserve(maps.size());
  for (const std::vector<float>& map : maps) pointers.push_back(map.data() + begin);
  return pointers;
}

std::size_t largest_slice(const Mask& mask) {
  std::size_t largest = 0;
  for (std::size_t k = 0; k < mask.slices(); ++k)
    largest = std::max(largest, mask.slice_begin[k + 1] - mask.slice_begin[k]);
  return largest;
}

std::vector<std::size_t> filled_slices(const Mask& mask) {
  std::vector<std::size_t> slices;
  for (std::size_t k = 0; k < mask.slices(); ++k)
    if (mask.slice_begin[k] < mask.slice_begin[k + 1]) slices.push_back(k);
  return slices;
}

/// What one thread needs to compute the statistic of a slice of a randomization.
struct Workspace {
  PeakMap::Plane plane;
  StudyMaps maps;
  std::vector<std::vector<float>> z;
  std::vector<float*> z_begins;
  std::vector<Voxel> voxels;

  Workspace(std::size_t studies, std::size_t z_maps, std::size_t slice)
      : maps{std::vector(studies, std::vector<float>(slice)),
             std::vector(studies, std::vector<float>(slice))},
        z(z_maps, std::vector<float>(slice)) {
    for (std::vector<float>& map : z) z_begins.push_back(map.data());
  }
};

/// A study as the randomizations see it.
struct MovingStudy {
  PeakMap map;
  VarianceOfG variance;
  std::uint64_t hash;
};

std::vector<MovingStudy> moving_studies(const MetaAnalysis& meta) {
  const double fwhm = reaching_fwhm(meta.record.fwhm, meta.record.anisotropy);
  std::vector<MovingStudy> studies;
  for (const Member& member : meta.members) {
    // Peaks too far from the mask for their kernel to reach it are no part of what was found in it.
    std::vector<Peak> reaching;
    const PeakMap all(fwhm, member.peaks);
    for (std::size_t p = 0; p < member.peaks.size(); ++p)
      if (all.reaches(all.peaks()[p], meta.mask)) reaching.push_back(member.peaks[p]);
    studies.push_back({PeakMap(fwhm, reaching), variance_of_g(member.study.sample),
                       name_hash(member.study.name)});
  }
  return studies;
}

/// The voxels of the mask that a study's peaks are moved to in a randomization.
void random_voxels(const MetaAnalysis& meta, const MovingStudy& study, std::size_t repeat,
                   std::vector<Voxel>& voxels) {
  RandomStream random(meta.record.seed, repeat, study.hash);
  voxels.clear();
  for (std::size_t p = 0; p < study.map.peaks().size(); ++p)
    voxels.push_back(meta.mask.voxel(random.below(std::uint32_t(meta.mask.size()))));
}

/// What the randomizations of a meta-analysis share.
struct Randomizations {
  const MetaAnalysis& meta;
  const std::vector<MovingStudy>& studies;
  const std::vector<std::size_t>& slices;
  const Statistic& statistic;
  std::vector<NullDistribution>& nulls;
  Action& action;
  std::vector<std::unique_ptr<Workspace>>& workspaces;  ///< of each thread

  void count_slice(std::size_t repeat, std::size_t k, std::size_t thread) const {
    const std::size_t voxels = meta.mask.slice_begin[k + 1] - meta.mask.slice_begin[k];
    Workspace& work = *workspaces[thread];
    for (std::size_t s = 0; s < studies.size(); ++s) {
      const float* g = work.maps.g[s].data();
      float* var = work.maps.var[s].data();
      for (std::size_t v = 0; v < voxels; ++v) var[v] = float(studies[s].variance.at(g[v]));
    }
    statistic(work.maps.effects(0), work.maps.variances(0), voxels, work.z_begins);
    for (std::size_t map = 0; map < nulls.size(); ++map)
      nulls[map].count(std::span(work.z[map]).first(voxels), repeat, thread);
    action.step();
  }
};

/// A slice at a time, so that all the studies' values of it stay in the cache, and memory does not
/// grow with whole maps of every study.
void randomize_along_lines(const Randomizations& all) {
  const std::size_t slices = all.slices.size(), repeats = all.meta.record.randomizations;
  in_parallel(repeats * slices, [&](std::size_t item, std::size_t thread) {
    const std::size_t repeat = item / slices, k = all.slices[item % slices];
    Workspace& work = *all.workspaces[thread];
    for (std::size_t s = 0; s < all.studies.size(); ++s) {
      random_voxels(all.meta, all.studies[s], repeat, work.voxels);
      all.studies[s].map.effects(work.voxels, int(k), all.meta.mask, work.plane,
                                 work.maps.g[s].data());
    }
    all.count_slice(repeat, k, thread);
  });
}

/// Paths are not found a slice at a time: the threads share the studies of a randomization, of
/// which there is one whole map each, and then its slices.
void randomize_along_paths(const Randomizations& all) {
  const MetaAnalysis& meta = all.meta;
  const PathMap paths(meta.mask, meta.correlation, meta.record.fwhm, meta.record.anisotropy);
  std::vector<PathMap::Room> rooms(all.workspaces.size(), PathMap::Room(paths));
  std::vector<std::vector<float>> maps(all.studies.size(), std::vector<float>(meta.mask.size()));
  for (std::size_t repeat = 0; repeat < meta.record.randomizations; ++repeat) {
    in_parallel(maps.size(), [&](std::size_t s, std::size_t thread) {
      std::vector<Voxel>& voxels = all.workspaces[thread]->voxels;
      random_voxels(meta, all.studies[s], repeat, voxels);
      paths.effects(all.studies[s].map.peaks(), voxels, rooms[thread], maps[s].data());
    });
    in_parallel(all.slices.size(), [&](std::size_t item, std::size_t thread) {
      const std::size_t k = all.slices[item], begin = meta.mask.slice_begin[k];
      for (std::size_t s = 0; s < maps.size(); ++s)
        std::copy(maps[s].data() + begin, maps[s].data() + meta.mask.slice_begin[k + 1],
                  all.workspaces[thread]->maps.g[s].data());
      all.count_slice(repeat, k, thread);
    });
  }
}

}  // namespace

std::string effect_map_file(const std::string& study) {
  return "pp/" + study + "_g.nii.gz";
}

std::string variance_map_file(const std::string& study) {
  return "pp/" + study + "_var.nii.gz";
}

MetaAnalysis open_meta_analysis(const std::string& filter) {
  MetaAnalysis meta;
  meta.record = read_pp_record();
  const StudyTable table = read_study_table();
  const std::vector<std::size_t> chosen = filtered_studies(table, filter);
  for (const std::size_t i : chosen)
    meta.members.push_back(checked_member(meta.record, table.studies[i]));
  meta.left_out = table.studies.size() - chosen.size();
  const std::string path = mask_path(meta.record.mask);
  if (file_checksum(path) !=
      recorded(meta.record.checksums, "mask_" + meta.record.mask + ".nii.gz"))
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

AnalysisFacts facts_of(const Command& command, const MetaAnalysis& meta) {
  AnalysisFacts facts{.command = command.text(), .studies = meta.members.size()};
  for (const Member& member : meta.members)
    facts.participants += std::size_t(member.study.sample.n1) + std::size_t(member.study.sample.n2);
  return facts;
}

std::vector<const float*> StudyMaps::effects(std::size_t begin) const {
  return pointers_at(g, begin);
}

std::vector<const float*> StudyMaps::variances(std::size_t begin) const {
  return pointers_at(var, begin);
}

std::vector<float> read_variances(const std::string& study, const Mask& mask) {
  const std::string file = variance_map_file(study);
  std::vector<float> var = read_map(file, mask);
  if (std::any_of(var.begin(), var.end(), [](float value) { return !(value > 0); }))
    throw Refusal("'" + file + "' has a variance in the mask that is not above 0.");
  return var;
}

StudyMaps read_study_maps(const MetaAnalysis& meta) {
  const std::size_t studies = meta.members.size();
  Action action("Reading the maps of " + std::to_string(studies) + " studies", 2 * studies);
  StudyMaps maps;
  maps.g.resize(studies);
  maps.var.resize(studies);
  in_parallel(2 * studies, [&](std::size_t i, std::size_t) {
    const std::string& name = meta.members[i / 2].study.name;
    if (i % 2 == 0) {
      maps.g[i / 2] = read_map(effect_map_file(name), meta.mask);
    } else {
      maps.var[i / 2] = read_variances(name, meta.mask);
    }
    action.step();
  });
  action.finish();
  return maps;
}

std::vector<NullDistribution> randomized(const MetaAnalysis& meta,
                                         std::span<const std::vector<float>> observed,
                                         const Statistic& statistic) {
  const auto threads = std::size_t(omp_get_max_threads());
  const std::vector<MovingStudy> studies = moving_studies(meta);
  const std::vector<std::size_t> slices = filled_slices(meta.mask);
  const std::size_t repeats = meta.record.randomizations;
  Action action("Moving the peaks to random places (" + std::to_string(repeats) +
                    (repeats == 1 ? " time)" : " times)"),
                repeats * slices.size(), randomization_dots);
  std::vector<NullDistribution> nulls;
  for (const std::vector<float>& map : observed) nulls.emplace_back(map, repeats, threads);
  std::vector<std::unique_ptr<Workspace>> workspaces;
  for (std::size_t t = 0; t < threads; ++t)
    workspaces.push_back(
        std::make_unique<Workspace>(studies.size(), observed.size(), largest_slice(meta.mask)));
  const Randomizations all{meta, studies, slices, statistic, nulls, action, workspaces};
  if (meta.record.anisotropy > 0)
    randomize_along_paths(all);
  else
    randomize_along_lines(all);
  for (NullDistribution& null : nulls) null.finish();
  action.finish();
  return nulls;
}
