#pragma once

// What a report tells of how a map of the working folder came about.

#include <span>
#include <string>
#include <vector>

#include "engine/base/command.h"
#include "engine/report/explorer.h"
#include "engine/report/html.h"
#include "engine/report/methods.h"
#include "engine/results/results_layer.h"

namespace kvo::results {

struct MapFacts {
  std::vector<Fact> facts;            ///< analysis, studies, preprocessing
  std::vector<std::string> commands;  ///< preprocessing and the analysis, as they can be run again
  MethodsFacts methods;               ///< without thresholds
  /// The studies that took part; no rows where their files have gone.
  HtmlTable studies;
  std::vector<ExploredStudy> explored;  ///< the same with their peaks; of images without places
};

/// Gathers them from the records of preprocessing and of the analysis, and from the study files,
/// which may have changed since. What is not known any more is left out. Of the map "" they are
/// those of preprocessing and of all studies. `verbs` are
/// those that the analysis may have been made by. Throws Refusal when the record of preprocessing
/// is missing or not as it should be.
MapFacts facts_of_map(const std::string& map, std::span<const Verb> verbs);

}  // namespace kvo::results
