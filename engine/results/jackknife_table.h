#pragma once

// How the clusters of a mean fare without one study each, as a file and in the console. The report
// has a table of its own.

#include <span>
#include <string>

#include "engine/inference/clusters.h"
#include "engine/report/jackknife_report.h"
#include "engine/results/results_layer.h"

namespace kvo::results {

/// Comma-separated values with a header line: a line for each cluster.
std::string jackknife_csv(const std::string& map, std::span<const Cluster> clusters,
                          const WithoutOne& without);

/// Says the table.
void say_jackknife(std::span<const Cluster> clusters, const WithoutOne& without);

}  // namespace kvo::results
