#pragma once

// The results as repositories of statistical maps take them: a folder whose names follow those of
// BIDS derivatives, with a side file of JSON for each map.

#include <span>

#include "engine/base/command.h"
#include "engine/base/outputs.h"
#include "engine/results/results_layer.h"

namespace kvo::results {

/// Throws Refusal when no analysis has left maps.
void check_shared_results();

/// Writes the maps of all analyses, but for a jackknife's runs, into the folder
/// KVO_RESULTS_FOLDER; how many. `verbs` are those that the analyses may have been made by. Throws
/// Refusal as check_shared_results(), and when a map cannot be read.
std::size_t share_results(Outputs& outputs, std::span<const Verb> verbs);

}  // namespace kvo::results
