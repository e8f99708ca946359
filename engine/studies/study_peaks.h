#pragma once

// The peaks file of a study: where its effects were found, and how large they were.

#include <Eigen/Core>
#include <string>
#include <vector>

#include "engine/studies/studies_layer.h"
#include "engine/studies/study.h"

namespace kvo::studies {

struct Peak {
  Eigen::Vector3d mm;  ///< in MNI space
  double g;            ///< Hedges' g
  bool height_known = true;
};

struct StudyPeaks {
  std::vector<Peak> peaks;
  std::string checksum;          ///< of the file
  bool talairach = false;        ///< whether the file has Talairach coordinates
  bool unknown_heights = false;  ///< whether a peak has no t value
};

std::string peaks_file(const Study& study);

/// Reads the study's peaks file. Talairach coordinates are converted to MNI space. A peak of
/// unknown height gets the height that just reaches significance, threshold_of() the study. Throws
/// Refusal, naming the line, when the file is malformed, has no line that names the space, places a
/// peak far outside any head, or has a peak below the threshold that the table states; since
/// heights are rounded, half a unit of the last decimal is tolerated.
StudyPeaks read_peaks(const Study& study);

}  // namespace kvo::studies
