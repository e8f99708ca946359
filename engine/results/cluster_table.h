#pragma once

// The table of clusters and their local peaks, as a file and in the console. Reports have a table
// of their own.

#include <span>
#include <string>

#include "engine/inference/clusters.h"
#include "engine/results/results_layer.h"

namespace kvo::results {

/// Comma-separated values with a header line that names the units: a line for each local peak, with
/// what is known of its cluster.
std::string cluster_csv(const std::string& map, std::span<const Cluster> clusters);

/// Says the table: the largest clusters of each direction, up to three peaks of each, and the
/// regions that hold most of it.
void say_clusters(std::span<const Cluster> clusters);

}  // namespace kvo::results
