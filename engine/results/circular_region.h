#pragma once

// Regions that were chosen by the effects that are then looked at in them.

#include <string>

#include "engine/images/mask.h"
#include "engine/results/results_layer.h"

namespace kvo::results {

/// What is to be said of extracting from those voxels, which the mask of that file has, when that
/// is circular: the mask is itself a map that a threshold or a conjunction has left, or the voxels
/// are all among those that such a map of the working folder keeps (Kriegeskorte et al. 2009,
/// Nature Neuroscience 12:535). "" otherwise. Files that cannot be read are passed over.
std::string circularity_of(const Mask& voxels, const std::string& mask_path);

}  // namespace kvo::results
