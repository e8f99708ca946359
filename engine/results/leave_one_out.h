#pragma once

// The means of an analysis without one of its studies each, as a jackknife leaves them.

#include <span>
#include <string>
#include <vector>

#include "engine/base/command.h"
#include "engine/images/mask.h"
#include "engine/report/jackknife_report.h"
#include "engine/results/results_layer.h"
#include "engine/results/thresholding.h"

namespace kvo::results {

/// What a jackknife of an analysis leaves: for each study the name of the map without it.
struct LeaveOneOut {
  std::string analysis;
  std::vector<std::string> studies, maps;
};

/// What it would leave, whether it has been run or not. Throws Refusal when the lists of the folder
/// and the study table do not say of which studies the analysis is, or it is no mean.
LeaveOneOut leave_one_out_of(const std::string& analysis, std::span<const Verb> verbs);

/// Whether the folder has anything of it.
bool has_runs(const LeaveOneOut& runs);

/// Throws Refusal, naming the file, when a run is missing, is of an earlier preprocessing, or is
/// not the analysis without that study.
void check_runs(const LeaveOneOut& runs);

/// The runs' outcome.
struct LeaveOneOutMaps {
  WithoutOne without;
  /// For each voxel of the MNI grid the share of runs in which it survives, and the same below 0
  /// where the effect is.
  std::vector<float> share, signed_share;
};

/// Thresholds all runs as the analysis was, whose clusters are given, showing progress. Throws
/// Refusal when a map cannot be read.
LeaveOneOutMaps threshold_runs(const LeaveOneOut& runs, const ThresholdRequest& request,
                               const ChosenP& chosen, const Mask& mask,
                               std::span<const Cluster> clusters);

}  // namespace kvo::results
