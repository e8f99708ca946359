#pragma once

// The results of randomizations, whoever made them: counts and largest values that are the same in
// whatever order, and from however many processes, they are combined.

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "engine/inference/inference_layer.h"
#include "engine/inference/null_distribution.h"
#include "engine/inference/tested_map.h"

namespace kvo::inference {

struct Tally {
  NullCounts null;
  std::array<LargestValues, 2> largest;  ///< in the order of the randomizations
  /// Of exchanges, in each voxel: the number of values at least as far from 0, in either direction,
  /// and sums of scores, their squares and cubes in small whole units.
  std::array<std::vector<std::uint32_t>, 2> beyond;
  std::array<std::vector<std::int64_t>, 3> powers;
};

/// Whether they can be added up: those of one map have equal numbers of ranks, bins and voxels.
bool fit_together(const Tally& a, const Tally& b);

/// The tally as bytes, for a machine with the same byte order.
std::string bytes_of(const Tally& tally);

/// Adds a tally that fits to another.
void add(Tally& to, const Tally& tally);

/// Takes a tally from the beginning of the bytes. Returns false when they are not a tally.
bool take_tally(std::string_view& bytes, Tally& tally);

}  // namespace kvo::inference
