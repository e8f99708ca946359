#pragma once

// Boxes of voxels of the MNI grid that pictures of the brain are cut to.

#include <array>
#include <span>

#include "engine/report/brain_picture.h"
#include "engine/report/report_layer.h"

namespace kvo::report {

struct BrainBox {
  std::array<int, 3> low{}, high{-1, -1, -1};  ///< the first and the last voxel of each axis

  [[nodiscard]] bool empty() const { return high[0] < low[0]; }
  [[nodiscard]] int size(std::size_t axis) const { return high[axis] - low[axis] + 1; }
};

/// The smallest box around the voxels of a map of the MNI grid that are finite and not 0.
BrainBox box_of_map(std::span<const float> map);

/// The smallest box around the brain and what is in the map, with a voxel more on each side where
/// the grid has it; the whole grid when it is not known where the brain is.
BrainBox brain_box(const BrainMap& map, const BrainBackground& background);

}  // namespace kvo::report
