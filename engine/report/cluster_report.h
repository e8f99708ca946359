#pragma once

// The report of a thresholded map.

#include <array>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "engine/inference/clusters.h"
#include "engine/report/brain_picture.h"
#include "engine/report/explorer.h"
#include "engine/report/html.h"
#include "engine/report/jackknife_report.h"
#include "engine/report/methods.h"
#include "engine/report/report_layer.h"

namespace kvo::report {

struct ClusterReport {
  std::string title;                  ///< the map
  std::string subtitle;               ///< the thresholds in a few words
  std::vector<Fact> facts;            ///< what was run
  std::vector<std::string> commands;  ///< that led here, in their order
  HtmlTable studies{};                ///< that took part; may have no rows
  Methods methods;
  std::optional<MethodsFacts> checked{};  ///< of an analysis that has a checklist
  std::span<const Cluster> clusters;      ///< in the order of the table
  std::span<const float> z;               ///< of the whole MNI grid; 0 where it is not significant
  std::string statistic = "z";            ///< what the values are called
  /// By which each of p_map_kinds has a standard error; 0 for those that have none to tell.
  std::array<std::size_t, p_map_kinds.size()> randomizations{};
  BrainBackground background;  ///< as read_brain_background() reads it
  /// Where the folder has the runs of a jackknife: how the clusters fare in them, or why that
  /// cannot be told.
  std::optional<WithoutOne> without_one{};
  std::string without_one_fault{};
  std::optional<Explored> explored{};  ///< what the explorer shows, if the report has one
};

/// The region of a peak with the side that it is on, which most of the atlas's names begin with.
std::string region_and_side(const LocalPeak& peak);

/// The whole HTML file. Without clusters it says that nothing survives the thresholds, and what was
/// run.
std::string cluster_report(const ClusterReport& report);

}  // namespace kvo::report
