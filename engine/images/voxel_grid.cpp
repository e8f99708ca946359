#include "engine/images/voxel_grid.h"

namespace kvo::images {

namespace {

constexpr std::array<int, 3> mni_size{91, 109, 91};
constexpr std::array<int, 3> mni_origin{-90, -126, -72};  // mm

}  // namespace

const Grid& mni_grid() {
  static const Grid grid = [] {
    Grid g;
    g.size = mni_size;
    for (int axis = 0; axis < 3; ++axis) {
      g.to_mm(axis, axis) = voxel_mm;
      g.to_mm(axis, 3) = mni_origin[std::size_t(axis)];
    }
    return g;
  }();
  return grid;
}

std::array<int, 3> mm_of(const Voxel& voxel) {
  return {voxel_mm * voxel.i + mni_origin[0], voxel_mm * voxel.j + mni_origin[1],
          voxel_mm * voxel.k + mni_origin[2]};
}

}  // namespace kvo::images
