#pragma once

// What the explorer of a report shows of a map of the working folder.

#include <array>
#include <span>
#include <string>
#include <vector>

#include "engine/images/mask.h"
#include "engine/inference/clusters.h"
#include "engine/report/explorer.h"
#include "engine/results/results_layer.h"

namespace kvo::results {

/// The maps of an analysis. z is of the voxels of the mask, the others of the MNI grid.
struct MapToExplore {
  const std::string& name;
  const Mask& mask;
  std::span<const float> z;
  const std::array<std::vector<float>, 2>& p;  ///< that is thresholded, of either direction
  std::string p_name;
  const std::array<std::vector<float>, 3>* effects;  ///< with their limits; may be null
  std::span<const float> atlas;
};

/// Reads what else there is, and leaves out what is not there.
Explored explored_map(const MapToExplore& map);

/// Gives studies with images what these say at the peaks of the clusters, unless they are too many
/// to be read for a report. A study whose maps are no longer there or as they were gets nothing.
void add_image_places(std::vector<ExploredStudy>& studies, const Mask& mask,
                      std::span<const Cluster> clusters);

}  // namespace kvo::results
