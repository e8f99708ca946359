#pragma once

// p values by exchanging studies.
//
// Of a term of a linear model: what the other terms leave of its values is dealt out anew to the
// studies, and the coefficient is tested beside the other terms as it was (the residualised
// regressor of Freedman and Lane's family of permutations: Smith's method in Winkler et al. 2014,
// NeuroImage 92:381). The maps stay as they are, with each study's precision, so that under a
// covariate that has nothing to do with the studies' maps the test is exact with one term, whatever
// the maps look like, and close to it with more. Moving peaks to random places would test whether
// they converge, which is no test of a slope.
//
// Of the intercept, where all the studies have images: the images' signs are drawn at random, which
// is exact where errors are as likely in either direction.
//
// A voxel is compared with its own values in all the exchanges. Beyond the last few that are larger
// its p is told by the moments of these values (pearson_tail()). An exchange is a row of numbers
// for the studies and its values in all voxels the product with their maps, so that there are at
// least 10,000 of them.

#include "engine/inference/parts.h"
#include "engine/inference/tested_map.h"
#include "engine/maps/meta_analysis.h"
#include "engine/model/design.h"

namespace kvo::inference {

struct ExchangeRequest {
  const MetaAnalysis& meta;
  const Design& design;
  std::size_t coefficient;  ///< 0 is the intercept
  std::string name;         ///< of the coefficient, for the reader and for what is drawn
  const StudyMaps& studies;
  double tau2;
};

/// Shows progress. Where the studies can be exchanged in so few ways that no p can be small, it
/// says so. Nothing when this process makes a part only, whose tally is then left in `part`.
std::optional<TestedMap> tested_by_exchange(const ExchangeRequest& request, const Shared& shared,
                                            Tally& part);

}  // namespace kvo::inference
