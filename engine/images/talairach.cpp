#include "engine/images/talairach.h"

#include <Eigen/Geometry>
#include <Eigen/LU>

namespace kvo::images {

const Eigen::Matrix4d& talairach_of_mni() {
  static const Eigen::Matrix4d affine = [] {
    Eigen::Matrix4d a;
    a << 0.9357, 0.0029, -0.0072, -1.0423,  //
        -0.0065, 0.9396, -0.0726, -1.3940,  //
        0.0103, 0.0752, 0.8967, 3.6475,     //
        0, 0, 0, 1;
    return a;
  }();
  return affine;
}

Eigen::Vector3d mni_of_talairach(const Eigen::Vector3d& mm) {
  return (talairach_of_mni().inverse() * mm.homogeneous()).head<3>();
}

}  // namespace kvo::images
