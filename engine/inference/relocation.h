#pragma once

// p values by moving peaks: do the studies' peaks converge here more than if they lay anywhere?
//
// Peaks are moved within the mask to the kinds of tissue where the studies report theirs, in the
// same shares (placement.h). Peaks of a study that lie together keep their places to each other
// where that fits into the mask. Studies with images have the signs of these drawn at random. The
// statistic is that of dispersion_z.h, of the intercept.
//
// In some places peaks at random come together more than in others: at the edge of the mask less
// than in its midst, and in the tissues of peaks more than elsewhere. So a value is taken relative
// to the root mean square of a kernel around random places at its voxel, and those of all voxels
// make one null distribution. A place where no study reports anything keeps the value 0.

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

/// As often as preprocessing was told, showing progress. Nothing when this
/// process makes a part only, whose tally is then left in `part`.
std::optional<TestedMap> tested_by_relocation(const RelocationRequest& request,
                                              const Shared& shared, Tally& part);

}  // namespace kvo::inference
