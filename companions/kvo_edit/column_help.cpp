#include "companions/kvo_edit/column_help.h"

namespace kvo::edit {

namespace {

constexpr struct {
  const char* name;
  const char* text;
} HELP[] = {
    {"threshold_t",
     "The t value from which on the study called a voxel significant. In the Methods section or "
     "below the table of peaks: 'thresholded at t > 3.1', 'height threshold T = 4.9'. Of clusters "
     "that were corrected, it is the threshold that formed them."},
    {"threshold_p",
     "The same threshold as a one-tailed p value, where the paper gives no t. The Methods section: "
     "'thresholded at p < 0.001 uncorrected', 'cluster-forming threshold p < 0.005'. Halve a "
     "two-tailed p; z > 2.3 is p < 0.0107, z > 3.1 is p < 0.001. A p that is corrected for the "
     "whole brain is no such p: look for the t that goes with it, and enter that as threshold_t. "
     "Without either, p < 0.001 is assumed."},
    {"peaks_per_cluster",
     "How many peaks of a cluster the study lists at most. Below the table of peaks: 'up to three "
     "local maxima per cluster'; 1 where each row has a cluster's size."},
    {"peak_distance",
     "How far apart, in mm, the listed peaks are at least. Below the table of peaks: 'local maxima "
     "more than 8 mm apart'."},
    {"cluster_extent",
     "How large a cluster had to be, in voxels of 2 mm (8 cubic mm). The Methods section: 'k > 10 "
     "voxels', 'extent of at least 270 mm\u00b3'. Multiply a number of the study's own voxels by "
     "their volume in cubic mm, and divide by 8: 10 voxels of 3 mm are 33.75. 0 when clusters of "
     "any size were listed."},
};

}  // namespace

const char* column_help(std::string_view name) {
  for (const auto& column : HELP)
    if (name == column.name) return column.text;
  return nullptr;
}

std::string listing_help() {
  std::string text =
      "Papers list some of their peaks, and say in a few words which. Add these variables to the "
      "table, and enter what a paper tells; leave NA what it does not. A study has one of the two "
      "thresholds.";
  for (const auto& column : HELP)
    text.append("\n\n").append(column.name).append(": ").append(column.text);
  return text;
}

}  // namespace kvo::edit
