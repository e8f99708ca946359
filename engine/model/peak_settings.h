#pragma once

// What is assumed about all studies, chosen by how well some of them predict the peaks of the
// others.

#include <optional>
#include <span>

#include "engine/model/peak_fit.h"

namespace kvo::model {

struct ChosenAssumptions {
  PeakAssumptions assumptions;
  bool by_prediction = false;  ///< false where there are too few peaks to choose by
  bool tau2_by_prediction = false;
};

/// Varies the between-study variance (unless it is known, or the studies list too little of their
/// maxima), the smoothness and the width up and down as long as that predicts the peaks of left-out
/// studies better.
ChosenAssumptions choose_assumptions(std::span<const ListingStudy> studies, const Mask& mask,
                                     std::optional<double> known_tau2);

}  // namespace kvo::model
