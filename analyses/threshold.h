#pragma once

// Thresholding of a map that has a null distribution.

#include <string>

#include "analyses/composed.h"

struct Kvo_threshold_answers {
  std::string map;
  float probability;
  float peak_height;  ///< z
  int extent;         ///< voxels
};
Kvo_composed kvo_compose_threshold(const Kvo_threshold_answers& answers);

/// Handler of the menu action.
void kvo3_threshold();
