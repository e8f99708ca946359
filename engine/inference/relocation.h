#pragma once

// p values by moving peaks: do the studies' peaks converge here more than if they lay anywhere?
//
// Peaks are moved within the mask to the kinds of tissue where the studies report theirs, in the
// same shares (placement.h). Peaks of a study that lie together keep their relative places where
// the mask has room for that. For studies with images, the signs of these are drawn at random. The
// statistic is that of dispersion_z.h for the intercept.
//
// Random peaks come together more in some places than in others: less at the edge of the mask than
// in its middle, and more in the tissues of peaks than elsewhere. So a value is taken relative to
// the root mean square of a kernel around random places at its voxel, and those of all voxels make
// one null distribution. A place where no study reports anything keeps the value 0.

#include "engine/inference/parts.h"
#include "engine/inference/tested_map.h"
#include "engine/maps/meta_analysis.h"
#include "engine/model/design.h"

namespace kvo::inference {

struct RelocationRequest {
  const MetaAnalysis& meta;
  const Design& design;
  const StudyMaps& studies;  ///< as they are
  double tau2;
};

/// Randomizes as often as preprocessing was told, showing progress. Returns nothing when this
/// process makes only a part, and leaves its tally in `part`.
std::optional<TestedMap> tested_by_relocation(const RelocationRequest& request,
                                              const Shared& shared, Tally& part);

}  // namespace kvo::inference
