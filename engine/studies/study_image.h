#pragma once

// The image of a study: t statistics of the whole brain on a grid of its own, resampled to the
// voxels of a mask.
//
// A voxel that is 0 or NaN has no data: images are 0 outside what was scanned or analysed. A value
// between voxels is found by trilinear interpolation among those of the eight voxels around it that
// have data, their weights rescaled to a sum of 1; when they had less than half of the weight,
// there is no data there either. An image with voxels finer than those of the mask is sampled, not
// averaged, so that its values stay t values of its own smoothness.

#include <string>
#include <vector>

#include "engine/images/mask.h"
#include "engine/studies/studies_layer.h"
#include "engine/studies/study.h"

namespace kvo::studies {

struct StudyImage {
  std::vector<float> t;             ///< in the voxels of the mask; NaN without data
  std::size_t without_data = 0;     ///< the number of those
  std::vector<std::string> doubts;  ///< what is unclear about the image, one sentence each
};

std::string image_file(const Study& study);

/// Reads the study's image. Voxels are placed by sform or qform, Talairach space is converted to
/// MNI space, and any other space is taken to be MNI space. Throws Refusal, naming the file, when
/// it is not an image with one volume of t statistics, does not say where its voxels are, holds a
/// value that cannot be a t value (infinite, or beyond max_t), or has no data in the mask.
StudyImage read_study_image(const Study& study, const Mask& mask);

}  // namespace kvo::studies
