#pragma once

// p maps as other commands read them.

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "engine/images/image.h"
#include "engine/inference/inference_layer.h"
#include "engine/maps/folder_maps.h"

namespace kvo::inference {

/// p values of one direction: for each of p_map_kinds a map, which is empty when there is none, or
/// the p values of one voxel.
using TailMaps = std::array<std::vector<float>, p_map_kinds.size()>;
using VoxelP = std::array<std::optional<double>, p_map_kinds.size()>;

/// Reads an image of p values. Throws Refusal, naming the file and the voxel, when it is not on the
/// MNI grid or a value is not above 0 and up to 1.
Image read_p_map(const std::string& path);

/// The p of no effect, of z = 0, by the header of a p map. It need not be 0.5: where few studies
/// find effects in the other direction, it is close to 1. Larger values belong to the other
/// direction, smaller ones to the map's own. Nothing when an earlier version or another program
/// wrote the map.
std::optional<double> p_of_no_effect(const Image& map);

/// The p values of an analysis' map in both directions, one-tailed, for each voxel of the MNI grid.
struct BothTails {
  TailMaps positive, negative;
};

/// Reads the p maps of a map of the working folder. Where an earlier version wrote none for the
/// negative direction, its p is 1 - p + 1 / (1 + null values), which is exact but for null values
/// that equal the observed one. Throws Refusal when one cannot be read.
BothTails read_tails(const std::string& map);

/// The uncorrected ones alone, positive and negative.
std::array<std::vector<float>, 2> read_uncorrected(const std::string& map);

/// The p values chosen for thresholding, in either direction; two-tailed ones are the same in both.
/// Throws Refusal when one cannot be read.
std::array<std::vector<float>, 2> read_chosen(const ChosenP& chosen);

}  // namespace kvo::inference
