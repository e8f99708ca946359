#pragma once

// How the clusters of a mean fare when one study at a time is left out.

#include <span>
#include <string>
#include <vector>

#include "engine/inference/clusters.h"
#include "engine/report/brain_picture.h"
#include "engine/report/html.h"
#include "engine/report/report_layer.h"

namespace kvo::report {

/// A cluster of the mean of all studies in the runs without one of them.
struct ClusterWithoutOne {
  std::size_t survived = 0;               ///< runs that have a voxel of it in a like cluster
  double g = 0, lowest = 0, highest = 0;  ///< at its peak: of all studies, and over the runs
  std::string study;                      ///< whose omission changes g most
  double without = 0;                     ///< g without that one
};

struct WithoutOne {
  std::size_t runs = 0;
  std::vector<ClusterWithoutOne> clusters;  ///< in the order of the mean's clusters
};

/// A line for each cluster.
HtmlTable without_one_table(std::span<const Cluster> clusters, const WithoutOne& without);

struct JackknifeReport {
  std::string title, subtitle;        ///< the mean; the thresholds in a few words
  std::vector<Fact> facts;            ///< what was run
  std::vector<std::string> commands;  ///< that led here, in their order
  std::span<const Cluster> clusters;
  const WithoutOne& without;
  /// For each voxel of the MNI grid the share of runs in which it survives, below 0 where the
  /// effect is.
  std::span<const float> share;
  BrainBackground background;  ///< as read_brain_background() reads it
};

/// The whole HTML file. Without clusters it says that the mean has none.
std::string jackknife_report(const JackknifeReport& report);

}  // namespace kvo::report
