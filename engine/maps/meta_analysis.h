#pragma once

// The meta-analysis of the working folder as preprocessing left it, for the analyses that follow.

#include <string>
#include <vector>

#include "engine/images/mask.h"
#include "engine/maps/folder_maps.h"
#include "engine/maps/maps_layer.h"
#include "engine/maps/pp_record.h"
#include "engine/maps/sparse_map.h"
#include "engine/studies/study.h"
#include "engine/studies/study_peaks.h"

namespace kvo::maps {

/// Voxels per task of an analysis.
inline constexpr std::size_t piece_voxels = 4096;

/// The names of a study's maps.
std::string effect_map_file(const std::string& study);
std::string variance_map_file(const std::string& study);

/// A study that takes part in an analysis.
struct Member {
  Study study;
  std::vector<Peak> peaks;  ///< none if the study has an image
  bool has_image = false;
};

struct MetaAnalysis {
  PpRecord record;
  Mask mask;
  std::vector<float> correlation;  ///< the template in the mask; empty without anisotropy
  std::vector<Member> members;
};

/// Reads everything but the maps of the studies, at least one, given by their indices in the table.
/// Throws Refusal when preprocessing has not been run, or when an input of one of the studies has
/// changed since or was not preprocessed.
MetaAnalysis open_meta_analysis(const StudyTable& table, std::span<const std::size_t> chosen);

/// The command, and how many studies and participants take part.
AnalysisFacts facts_of(const std::string& command, const MetaAnalysis& meta);

/// The maps of the studies in the voxels of the mask. A study has one kind or the other.
struct StudyMaps {
  std::vector<std::vector<float>> g, var;  ///< from images; empty for studies with peaks
  std::vector<SparseMap> of_peaks;         ///< the effects around peaks; empty for images

  explicit StudyMaps(std::size_t studies) : g(studies), var(studies), of_peaks(studies) {}

  /// Copies the effects of a study in `voxels` voxels from `begin` on, a multiple of the stretch of
  /// sparse maps. Returns false, leaving `to` as it was, when they are all 0.
  bool copy_effects(std::size_t study, std::size_t begin, std::size_t voxels, float* to) const;
  /// Pointers to voxel `begin` of each map, where all the studies have images.
  [[nodiscard]] std::vector<const float*> effects(std::size_t begin) const;
  [[nodiscard]] std::vector<const float*> variances(std::size_t begin) const;
};

/// The effects and the variances of a study in the voxels of a mask. Throws Refusal, naming the
/// file, when it is missing, is no longer what preprocessing left, or was left by a version that
/// recorded no checksum of it, or when it holds a value that cannot be a variance.
std::vector<float> read_effects(const PpRecord& record, const std::string& study, const Mask& mask);
std::vector<float> read_variances(const PpRecord& record, const std::string& study,
                                  const Mask& mask);

/// Reads the maps, only those of the effects for studies with peaks, showing progress. Throws
/// Refusal as read_effects() and read_variances() do.
StudyMaps read_study_maps(const MetaAnalysis& meta);

}  // namespace kvo::maps
