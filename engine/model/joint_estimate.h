#pragma once

// The effects of a meta-analysis from all that its studies report: peaks by their likelihood
// (peak_fit.h), and the images of others as they are.
//
// In each voxel the two are combined as independent normal likelihoods of the coefficients. The
// variance of an image is that of its study's g at the estimate plus the between-study variance.

#include <span>
#include <vector>

#include "engine/base/progress.h"
#include "engine/maps/meta_analysis.h"
#include "engine/model/design.h"
#include "engine/model/peak_settings.h"

namespace kvo::model {

/// What the estimate is based on.
struct JointFacts {
  std::size_t studies_with_peaks = 0, images = 0;
  std::size_t thresholds_assumed = 0;  ///< of the studies with peaks
  bool tau2_of_images = false;
  ChosenAssumptions chosen;
  std::vector<double> shares;  ///< listed, of the studies with peaks
  double listing_doubt = 0;    ///< standard deviation of the mean effect due to unknown listing
};

/// The maps of the coefficients of the design's terms, in the voxels of the mask.
struct JointEstimate {
  std::vector<std::vector<float>> g, var;
  /// The information in the studies, from 0 to 1, relative to what images of all of them would
  /// give.
  std::vector<std::vector<float>> info;
  JointFacts facts;
};

/// Whether any study has peaks, so that there is something to estimate jointly.
bool has_peaks(const MetaAnalysis& meta);

/// A study's peaks as the likelihood takes them. The threshold is a one-tailed p of assumed_p if
/// the table does not state it.
ListingStudy listing_of(const Member& member, Eigen::VectorXd row,
                        double assumed_p = assumed_threshold_p);
/// The standard deviation of the mean effect that comes from not knowing how studies choose the
/// peaks they list, given the share of their maxima listed and of peaks without a height.
double listing_doubt_of(const PeakFit& fit);

/// The fewest images from which the between-study variance is estimated.
inline constexpr std::size_t enough_images = 4;

/// The studies that have peaks, at least one, and the fit to them under the assumptions chosen for
/// them and for the images, which are among the maps. Counts two steps of the action.
struct JointFit {
  std::vector<ListingStudy> listing;
  JointFacts facts;
  PeakFit fit;
};
JointFit fit_jointly(const MetaAnalysis& meta, const Design& design, const StudyMaps& maps,
                     Action& action);

/// The joint estimate; of the studies' maps it uses those from images. Shows progress.
JointEstimate estimate_jointly(const MetaAnalysis& meta, const Design& design,
                               const StudyMaps& maps);

}  // namespace kvo::model
