#pragma once

// The maps that an analysis leaves, and their lines in the lists of the folder.

#include <span>
#include <string>
#include <vector>

#include "engine/base/command.h"
#include "engine/base/outputs.h"
#include "engine/images/mask.h"
#include "engine/inference/tested_map.h"
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

/// A map of an analysis, with its null distributions.
struct ListedMap {
  std::string name;
  const TestedMap& tested;
};

/// The text of "kvo_nd.txt" for no null distribution.
std::string empty_null_list();

/// Has the lists show that the folder has the maps of an analysis, with their null distributions,
/// and that they can be thresholded by their corrected p: "NAME_pFWE" and so on.
void list_maps(Outputs& outputs, std::span<const ListedMap> maps, const AnalysisFacts& facts);

/// Adds the p maps of a map, those that there are of each kind, and its TFCE. For whoever has an
/// uncorrected one-tailed p map alone, its header tells the p of no effect (p_of_no_effect()), and
/// 1 is never the p of an effect in the other direction.
void add_p_maps(std::vector<NamedMap>& maps, const std::string& name, const TestedMap& tested);

/// Writes the maps, showing progress. Other kinds of map that an earlier analysis has left under
/// one of the names are removed.
void write_maps(Outputs& outputs, const Command& command, const Mask& mask,
                std::span<const NamedMap> maps);

}  // namespace kvo::results
