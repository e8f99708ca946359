#pragma once

// The shortest paths from a voxel to those around it, in a cube of cells with the voxel in its
// middle.
//
// A path to a cell is of use only if it is shorter than the longest that can matter, there or
// further on. Until a path is found, that limit stands in for its length, so that checking a cell
// takes one comparison; at the surface of the cube it is 0, so that no path leaves it and no bounds
// need checking.

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "engine/images/voxel_grid.h"
#include "engine/maps/maps_layer.h"

namespace kvo::maps {

/// The cells, and what is known about them before any path is found.
class PathBox {
 public:
  /// For detours that end within `radius_mm` of a peak up to `peak_mm` away from the voxel where
  /// paths begin.
  PathBox(double radius_mm, double peak_mm);

  [[nodiscard]] double peak_mm() const { return peak_mm_; }

  /// Working space for one thread's paths, in any of several boxes.
  struct Room {
    std::vector<float> height, length;
    std::vector<std::uint8_t> queued;               ///< the piece of the queue that a cell is in
    std::vector<std::vector<std::uint32_t>> queue;  ///< by the path's length in steps of 2 mm
  };

  /// Finds the paths from a voxel; `height` is that of each voxel of the grid, NaN where no path
  /// may lead.
  void find_paths(std::span<const float> height, const Voxel& from, Room& room) const;

  /// How many mm longer the paths to the voxels (first, j, k), (first + 1, j, k) ... are than in
  /// uniform tissue, relative to the straight distance; the radius or more where no path is that
  /// short. Writes some more numbers after the last, up to `lanes`.
  void detours(const Room& room, const Voxel& from, const Voxel& first, std::size_t count,
               float* mm) const;

  /// Cells that are processed together.
  static constexpr std::size_t lanes = 8;

 private:
  /// Steps to three cells along x, each with its straight length squared; the fourth entry leads
  /// nowhere.
  struct Row {
    std::int32_t offset = 0;  ///< of the first
    std::array<float, 4> squared_mm{};
  };
  using Limits = std::vector<double>;

  [[nodiscard]] std::size_t cell(int i, int j, int k) const {
    return (std::size_t(k) * edge_ + std::size_t(j)) * edge_ + std::size_t(i);
  }
  [[nodiscard]] bool at_surface(const Voxel& at) const;
  void find_limits(double reach_mm);
  template <typename Visit>
  void for_each_inner_cell(const Visit& visit) const;
  [[nodiscard]] double best_beyond(const Limits& limits, std::size_t at, int first, int end) const;
  void enter(std::span<const float> height, const Voxel& from, Room& room) const;
  std::uint64_t shorter_paths(const Room& room, std::size_t at, float* lengths) const;

  double radius_mm_, peak_mm_;
  int half_;          ///< cells from the middle to the surface
  std::size_t edge_;  ///< cells along an edge
  std::array<Row, 9> rows_;
  std::vector<float> limit_;    ///< a path to a cell must be shorter than this to matter
  std::vector<float> onwards_;  ///< the same for a path that goes on from there
  std::vector<float> straight_, shortening_;  ///< straight distance; its share of a uniform path's
  std::size_t pieces_ = 0;                    ///< of the queue
};

}  // namespace kvo::maps
