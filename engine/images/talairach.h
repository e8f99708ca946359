#pragma once

// Between MNI space and Talairach space: the affine that Lancaster et al. 2007 (Human Brain Mapping
// 28:1194) fitted to images of all normalization programs pooled.

#include <Eigen/Core>

#include "engine/images/images_layer.h"

namespace kvo::images {

/// The affine from MNI to Talairach coordinates, (x, y, z, 1) in mm.
const Eigen::Matrix4d& talairach_of_mni();

/// The MNI coordinates of Talairach coordinates.
Eigen::Vector3d mni_of_talairach(const Eigen::Vector3d& mm);

}  // namespace kvo::images
