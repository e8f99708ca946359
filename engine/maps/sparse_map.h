#pragma once

// A map in the voxels of a mask that is 0 in most places, such as one of kernels around a study's
// peaks: even with thousands of studies, only the stretches of voxels that something reaches are in
// memory.

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "engine/maps/maps_layer.h"

namespace kvo::maps {

class SparseMap {
 public:
  /// Voxels that are kept or dropped together.
  static constexpr std::size_t stretch = 8;

  SparseMap() = default;
  explicit SparseMap(std::span<const float> values);

  /// Copies `voxels` values from voxel `begin` on, a multiple of the stretch. Returns false,
  /// leaving `to` as it was, when all are 0.
  bool copy(std::size_t begin, std::size_t voxels, float* to) const;

 private:
  /// The values of a stretch; null when they are 0.
  [[nodiscard]] const float* values_of(std::size_t number) const;

  std::vector<std::uint64_t> kept_;    ///< a bit for each stretch
  std::vector<std::uint32_t> before_;  ///< the number kept before those of each word
  std::vector<float> values_;
};

}  // namespace kvo::maps
