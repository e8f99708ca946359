#pragma once

// The effect of a region, the mean over its voxels, from all that the studies report: peaks by
// their likelihood (peak_fit.h), and the images of others as they are.

#include <optional>
#include <span>
#include <vector>

#include "engine/model/joint_estimate.h"
#include "engine/model/random_effects.h"

namespace kvo::model {

/// With more studies than this the estimate is not repeated without each of them.
inline constexpr std::size_t most_left_out = 40;

/// What the estimate becomes under another assumption.
struct Sensitivity {
  enum class Of { threshold, share, smoothness };
  Of of;
  /// The one-tailed p where the table states no threshold; else the factor on the listed share or
  /// the smoothness.
  double value;
  Estimate estimate;
};

/// The posterior density of the effect, scaled to a maximum of 1.
struct CurvePoint {
  double g, density;
};

struct RegionEstimate {
  JointFacts facts;
  Estimate estimate;
  /// Of the studies, in percent of all the information including the prior; nothing for those with
  /// peaks, because their weights cannot be told apart.
  std::vector<std::optional<double>> weights;
  std::vector<Sensitivity> sensitivity;
  std::vector<CurvePoint> curve;  ///< by rising g
  /// Without each study, under the same assumptions; none with a single study or too many.
  std::vector<Estimate> without;
};

/// Estimates the effect of a region inside the mask when at least one study has peaks. `images`
/// holds the maps of the studies that have images, and `values` their effects in the region, with
/// nothing for the others. Shows progress.
RegionEstimate estimate_region(const MetaAnalysis& meta, const StudyMaps& images,
                               std::span<const std::optional<Effect>> values, const Mask& region);

/// What a study lists in a region and within nearby_mm of one of its voxels.
inline constexpr int nearby_mm = 10;
struct PeaksNearby {
  std::size_t inside = 0, nearby = 0;  ///< nearby includes those inside
  /// The one with the largest absolute height, if any height is known; else any.
  std::optional<Peak> highest;
};
PeaksNearby peaks_nearby(std::span<const Peak> peaks, const Mask& region);

}  // namespace kvo::model
