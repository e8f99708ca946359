#pragma once

// How a command thresholds a map, so that others can be thresholded in the same way.

#include <array>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "engine/base/command.h"
#include "engine/images/mask.h"
#include "engine/inference/clusters.h"
#include "engine/results/results_layer.h"

namespace kvo::results {

/// The arguments of a command by their meaning.
struct ThresholdRequest {
  std::string map;
  float p, height;
  std::size_t extent;
  std::string p_text, height_text;
};
ThresholdRequest threshold_request(const Command& command);

/// The name of the result's files, up to the ending.
std::string threshold_base(const ThresholdRequest& request);

/// What the p is called that is thresholded.
std::string name_of_p(const ChosenP& chosen);
/// "p < 0.005, peak |z| at least 1, at least 10 voxels".
std::string criteria_text(const ThresholdRequest& request, const ChosenP& chosen);

/// The p of either direction that is thresholded. Throws Refusal when one cannot be read.
std::array<std::vector<float>, 2> thresholded_p(const ChosenP& chosen);

/// z of the mask where p is below the threshold in z's own direction, else 0; of the whole grid.
std::vector<float> beyond(const Mask& mask, std::span<const float> z,
                          const std::array<std::vector<float>, 2>& p, float threshold);

/// Whether the cluster is large and high enough.
bool survives(const Cluster& cluster, const ThresholdRequest& request);

/// What survives of a map of the working folder, without regions and p values.
std::vector<Cluster> surviving_clusters(const ThresholdRequest& request, const ChosenP& chosen,
                                        const Mask& mask);

/// A thresholded image of the working folder, and the command that it is made by.
struct ThresholdedImage {
  std::string file;
  Command command;
};

/// The newest one of an analysis, by whichever of its p; nothing when there is none.
std::optional<ThresholdedImage> newest_thresholded(const std::string& analysis,
                                                   std::span<const Verb> verbs);

}  // namespace kvo::results
