#pragma once

// Values of images between their voxels.

#include <Eigen/Core>
#include <array>

#include "engine/images/voxel_grid.h"

namespace kvo::images {

/// Floor; on baseline x86-64 std::floor is a function call.
inline int whole_below(double x) {
  const int whole = int(x);
  return whole - int(double(whole) > x);
}

/// Calls visit(voxel, weight) for the voxels around a place, given in voxel coordinates, with their
/// weights in trilinear interpolation, which sum to 1. Voxels of weight 0 are left out; others may
/// lie outside the grid.
template <typename Visit>
void for_each_corner(const Eigen::Vector3d& place, const Visit& visit) {
  const std::array<int, 3> low{whole_below(place.x()), whole_below(place.y()),
                               whole_below(place.z())};
  std::array<std::array<double, 2>, 3> weights{};
  for (unsigned axis = 0; axis < 3; ++axis) {
    const double part = place[axis] - low[axis];
    weights[axis] = {1 - part, part};
  }
  for (unsigned k = 0; k < 2; ++k)
    for (unsigned j = 0; j < 2; ++j)
      for (unsigned i = 0; i < 2; ++i) {
        const double weight = weights[0][i] * weights[1][j] * weights[2][k];
        if (weight > 0) visit(Voxel{low[0] + int(i), low[1] + int(j), low[2] + int(k)}, weight);
      }
}

}  // namespace kvo::images
