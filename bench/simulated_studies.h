#pragma once

// Simulated studies of one true map of effects, and the peaks that they would list.

#include <random>
#include <vector>

#include "engine/images/mask.h"
#include "engine/studies/effect_size.h"
#include "engine/studies/study_peaks.h"

namespace kvo::simulated {

using namespace kvo::studies;
using Map = std::vector<float>;  ///< on the MNI grid

/// What a meta-analysis is like. Smooth fields are by the FWHM of the kernel, in mm.
struct Truth {
  const char* name;
  double width;     ///< of the true effects; fields of twice that are mixed in
  double tau;       ///< between the studies, whose deviations have a FWHM of 24 mm
  double noise;     ///< FWHM of the noise of a study
  double mean, sd;  ///< of the true effects
};

struct SimulatedStudy {
  Sample sample;
  Map g;
};

struct SimulatedStudies {
  Map truth;
  std::vector<SimulatedStudy> studies;
};

SimulatedStudies simulate(const Truth& truth, std::size_t studies, std::uint64_t seed);

/// What a study lists of the local maxima of its clusters.
struct ListingRule {
  const char* name;
  double threshold_p;
  std::size_t per_cluster;
  double distance;     ///< that they are apart, in mm
  std::size_t extent;  ///< voxels of a cluster
  bool both_signs = false;
};

std::vector<Peak> listed_peaks(const SimulatedStudy& study, const Mask& mask,
                               const ListingRule& rule);

}  // namespace kvo::simulated
