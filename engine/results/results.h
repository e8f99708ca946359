#pragma once

// The maps that an analysis leaves, and their lines in the lists of the folder.

#include <span>
#include <string>
#include <vector>

#include "engine/base/command.h"
#include "engine/base/outputs.h"
#include "engine/images/mask.h"
#include "engine/inference/null_distribution.h"
#include "engine/maps/folder_maps.h"
#include "engine/results/results_layer.h"

namespace kvo::results {

/// A map of an analysis in memory: NAME_suffix.nii.gz.
struct NamedMap {
  std::string name;
  MapKind kind;
  std::vector<float> map;
  float intent_p1 = 0;
};

/// A z map of an analysis, with its null distribution.
struct ListedMap {
  std::string name;
  const NullDistribution& null;
};

/// The text of "kvo_nd.txt" for no null distribution.
std::string empty_null_list();

/// Has the lists show that the folder has the maps of an analysis, with their null distributions.
void list_maps(Outputs& outputs, std::span<const ListedMap> maps, const AnalysisFacts& facts);

/// Adds the p maps of a z map: one-tailed for either direction, and with enough randomizations
/// those that are corrected for the family-wise error. For whoever has a p map alone, its header
/// tells the p of no effect (p_of_no_effect()), and 1 is never the p of an effect in the other
/// direction.
void add_p_maps(std::vector<NamedMap>& maps, const std::string& name, const NullDistribution& null,
                std::size_t randomizations);

/// Writes the maps, showing progress. Other kinds of map that an earlier analysis has left under
/// one of the names are removed.
void write_maps(Outputs& outputs, const Command& command, const Mask& mask,
                std::span<const NamedMap> maps);

}  // namespace kvo::results
