#pragma once

// Regular grids of voxels, and the one grid that all results are on.

#include <Eigen/Core>
#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "engine/images/images_layer.h"

namespace kvo::images {

/// A voxel by its indices along the axes of a grid; it may lie outside the grid.
struct Voxel {
  int i, j, k;
};

/// A regular grid of voxels and its place in the head.
struct Grid {
  std::array<int, 3> size{};  ///< voxels along i, j, k; i runs fastest in memory
  Eigen::Matrix4d to_mm = Eigen::Matrix4d::Identity();  ///< voxel index (i, j, k, 1) to mm

  [[nodiscard]] std::size_t voxels() const { return plane() * std::size_t(size[2]); }
  /// The voxels of one k.
  [[nodiscard]] std::size_t plane() const { return std::size_t(size[0]) * std::size_t(size[1]); }

  [[nodiscard]] bool holds(int i, int j, int k) const {
    return i >= 0 && i < size[0] && j >= 0 && j < size[1] && k >= 0 && k < size[2];
  }
  [[nodiscard]] bool holds(const Voxel& at) const { return holds(at.i, at.j, at.k); }

  /// The index in memory of a voxel that the grid holds, and the voxel at such an index.
  [[nodiscard]] std::size_t index(int i, int j, int k) const {
    return (std::size_t(k) * std::size_t(size[1]) + std::size_t(j)) * std::size_t(size[0]) +
           std::size_t(i);
  }
  [[nodiscard]] std::size_t index(const Voxel& at) const { return index(at.i, at.j, at.k); }
  [[nodiscard]] Voxel voxel(std::size_t index) const {
    const auto nx = std::size_t(size[0]), ny = std::size_t(size[1]);
    return {int(index % nx), int(index / nx % ny), int(index / (nx * ny))};
  }

  /// The centre of a voxel in mm.
  [[nodiscard]] Eigen::Vector3d mm(const Voxel& at) const {
    const Eigen::Vector4d place = to_mm * Eigen::Vector4d(at.i, at.j, at.k, 1);
    return place.head<3>();
  }

  bool operator==(const Grid& other) const {
    return size == other.size && (to_mm - other.to_mm).cwiseAbs().maxCoeff() < 1e-4;
  }
};

/// The edge of a voxel of the results' grid in mm, and its volume in mm³.
inline constexpr int voxel_mm = 2;
inline constexpr int voxel_volume = voxel_mm * voxel_mm * voxel_mm;

/// The grid of every image that the system writes: MNI space, 2 mm, 91 x 109 x 91, voxel (0, 0, 0)
/// at (-90, -126, -72) mm, i to the right, j to the front, k up.
const Grid& mni_grid();

/// The centre of a voxel of that grid, in whole mm.
std::array<int, 3> mm_of(const Voxel& voxel);

/// Which voxels touch: those that share a face, or at least a corner.
enum class Touch { faces, corners };

/// Calls visit(index) for each voxel of the grid that touches the one at that index, in the order
/// of the grid.
template <typename Visit>
void for_each_neighbour(const Grid& grid, std::size_t index, Touch touch, const Visit& visit) {
  const Voxel at = grid.voxel(index);
  for (int dk = -1; dk <= 1; ++dk)
    for (int dj = -1; dj <= 1; ++dj)
      for (int di = -1; di <= 1; ++di) {
        const int steps = di * di + dj * dj + dk * dk;
        if (steps == 0 || (touch == Touch::faces && steps > 1)) continue;
        if (grid.holds(at.i + di, at.j + dj, at.k + dk))
          visit(grid.index(at.i + di, at.j + dj, at.k + dk));
      }
}

/// The connected voxels around the first, itself included: a flood fill through touching voxels
/// that take(index) accepts. It must accept each one only once, and is not asked about the first.
template <typename Take>
std::vector<std::uint32_t> connected_voxels(const Grid& grid, std::size_t first, Touch touch,
                                            const Take& take) {
  std::vector<std::uint32_t> found{std::uint32_t(first)};
  for (std::size_t next = 0; next < found.size(); ++next)
    for_each_neighbour(grid, found[next], touch, [&](std::size_t index) {
      if (take(index)) found.push_back(std::uint32_t(index));
    });
  return found;
}

}  // namespace kvo::images
