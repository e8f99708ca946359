#pragma once

// What preprocessing leaves in the working folder: the maps of the studies and the record, and no
// results of the meta-analysis that was there before.

#include <span>
#include <string>
#include <vector>

#include "engine/base/outputs.h"
#include "engine/images/mask.h"
#include "engine/maps/pp_record.h"
#include "engine/results/results_layer.h"

namespace kvo::results {

/// The maps of a study: where they are written, and their checksums once they have been.
struct StudyMapFiles {
  std::string study;
  std::string effects_path, variances_path;
  std::string effects_checksum, variances_checksum;
};

/// The places for the maps of a study. Not to be called by two threads at once.
StudyMapFiles place_study_maps(Outputs& outputs, const Study& study);

/// Writes the effects in the voxels of the mask and the variances that they have by the sizes of
/// the study's samples. Threads may write the maps of different studies at once.
void write_study_maps(StudyMapFiles& files, const Study& study, const Mask& mask,
                      std::span<const float> g, const std::string& description);

/// Writes the record, which lacks only the checksums of the studies' maps, and empty lists of maps.
/// Has the maps removed that analyses and an earlier preprocessing have left.
void write_preprocessed(Outputs& outputs, PpRecord record, std::span<const StudyMapFiles> maps);

}  // namespace kvo::results
