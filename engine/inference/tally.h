#pragma once

// What randomizations have come to, whoever made them: counts and largest values that come to the
// same in whatever order and by how many processes they are brought together.

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
  /// Of exchanges, in each voxel: values as far from 0 or further, in either direction, and sums of
  /// scores, their squares and cubes in small whole parts.
  std::array<std::vector<std::uint32_t>, 2> beyond;
  std::array<std::vector<std::int64_t>, 3> powers;
};

/// Whether they can be added up: those of one map have as many ranks, bins and voxels.
bool fit_together(const Tally& a, const Tally& b);

/// The tally as bytes, for a machine with the same order of bytes.
std::string bytes_of(const Tally& tally);

/// Adds to a tally one that fits.
void add(Tally& to, const Tally& tally);

/// Takes a tally from the beginning of the bytes. False when they are no tally.
bool take_tally(std::string_view& bytes, Tally& tally);

}  // namespace kvo::inference
