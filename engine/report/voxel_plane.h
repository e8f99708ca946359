#pragma once

// A plane of voxels, drawn larger.

#include <vector>

#include "engine/report/canvas.h"
#include "engine/report/colour_scale.h"
#include "engine/report/report_layer.h"

namespace kvo::report {

/// Values of voxels row by row from the upper left.
struct VoxelPlane {
  VoxelPlane(int plane_columns, int plane_rows)
      : columns(plane_columns),
        rows(plane_rows),
        grey(std::size_t(plane_columns) * std::size_t(plane_rows)),
        z(grey.size()) {}

  [[nodiscard]] std::size_t at(int column, int row) const {
    return std::size_t(row) * std::size_t(columns) + std::size_t(column);
  }

  int columns, rows;
  std::vector<float> grey;  ///< 0 black to 1 white, of what lies below
  std::vector<float> z;     ///< 0 where only that is to be seen
};

/// Where a plane is drawn, in pixels of the file: its upper left corner, and how many a voxel
/// takes.
struct PlanePlace {
  int x, y, voxel_size;
};

/// Draws the plane over what is there where it is neither grey nor coloured. Greys are
/// interpolated. Negative areas have a rim. An area of colour reaches to where half of the voxels
/// around are coloured, and what is coloured there are only values of coloured voxels.
void draw_plane(const Canvas& canvas, const PlanePlace& place, const VoxelPlane& plane,
                const ColourScale& scale);

/// Rounds all greys of the sheet so that with those of both scales a picture has less than 256
/// colours.
void limit_greys(const Canvas& canvas);

}  // namespace kvo::report
