#pragma once

// p values by exchanging studies.
//
// For a term of a linear model, what the other terms leave of its values is dealt out anew to the
// studies, and the coefficient is tested beside the other terms as before (the residualised
// regressor of Freedman and Lane's family of permutations: Smith's method in Winkler et al. 2014,
// NeuroImage 92:381). The maps stay as they are, with each study's precision, so that for a
// covariate unrelated to the studies' maps the test is exact with one term, whatever the maps look
// like, and nearly so with more. Moving peaks to random places would test whether they converge,
// which is no test of a slope.
//
// For the intercept, where all the studies have images, the images' signs are drawn at random,
// which is exact where errors are equally likely in either direction.
//
// A voxel is compared with its own values in all the exchanges. Where only a few of them are
// larger, its p comes from the moments of these values (pearson_tail()). An exchange is a row of
// numbers for the studies, and its values in all voxels are the product with their maps, which is
// fast enough for at least 10,000 exchanges.

#include "engine/inference/parts.h"
#include "engine/inference/tested_map.h"
#include "engine/maps/meta_analysis.h"
#include "engine/model/design.h"

namespace kvo::inference {

struct ExchangeRequest {
  const MetaAnalysis& meta;
  const Design& design;
  std::size_t coefficient;  ///< 0 is the intercept
  std::string name;         ///< of the coefficient, for the reader and for the random draws
  const StudyMaps& studies;
  double tau2;
};

/// Shows progress. Where the studies can be exchanged in so few ways that no p can be small, it
/// says so. Returns nothing when this process makes only a part, and leaves its tally in `part`.
std::optional<TestedMap> tested_by_exchange(const ExchangeRequest& request, const Shared& shared,
                                            Tally& part);

}  // namespace kvo::inference
