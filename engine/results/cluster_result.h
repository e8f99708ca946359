#pragma once

// What thresholding leaves: an image of what survives, a table and a report.

#include <functional>
#include <span>
#include <string>
#include <vector>

#include "engine/base/command.h"
#include "engine/base/outputs.h"
#include "engine/inference/clusters.h"
#include "engine/report/cluster_report.h"
#include "engine/results/results_layer.h"

namespace kvo::results {

struct ClusterResult {
  std::string map;       ///< what has been thresholded, for the reader
  std::string base;      ///< name of its files, up to the ending
  std::string criteria;  ///< "p < 0.005, peak |z| at least 1, at least 10 voxels"
  std::vector<float> z;  ///< of the whole MNI grid; 0 where nothing survives
  std::vector<Cluster> clusters;
};

/// A number as file names and texts have it: with so many decimals when they tell it exactly, else
/// with as many as it takes. So different thresholds have different names.
std::string threshold_text(double value, int decimals);

/// Throws Refusal when a file of the result has too long a name, or would replace an image that
/// this system has not written.
void check_result_name(const std::string& base);

/// Which clusters survive, and what they are described by.
struct ClusterCriteria {
  std::size_t extent = 1;  ///< the least number of voxels
  std::function<bool(const Cluster&)> keep;
  const BothTails& tails;
  std::span<const float> atlas;  ///< by read_atlas()
};

/// Sets z to 0 but in the clusters of it that survive; these become the clusters, with their
/// regions and the p values of their peaks.
void keep_clusters(ClusterResult& result, const ClusterCriteria& criteria);

/// Writes BASE.nii.gz, BASE.csv and BASE.html, showing progress. The report need not have what the
/// result tells.
void write_result(Outputs& outputs, const Command& command, const ClusterResult& result,
                  ClusterReport report);

/// Says the table and the names of the files.
void say_result(const ClusterResult& result);

}  // namespace kvo::results
