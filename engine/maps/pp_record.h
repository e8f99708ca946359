#pragma once

// "kvo_pp.txt": the parameters, inputs and outputs of preprocessing. Later commands take their
// parameters from it, and check against it that inputs and maps are unchanged.

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "engine/maps/maps_layer.h"
#include "engine/studies/study.h"

namespace kvo::maps {

struct PpRecord {
  std::string correlation_template, mask;
  double anisotropy = 0, fwhm = 0;
  std::uint64_t seed = 0;
  std::size_t randomizations = 0;
  /// The checksum of each input file and each study's map, and for each study the facts in the
  /// table that its maps depend on.
  std::map<std::string, std::string> checksums, studies;

  [[nodiscard]] std::string text() const;
};

/// The facts in the study table that a study's maps depend on: "n1 25, n2 NA, threshold_t 3.1", or
/// "n1 25, n2 NA, threshold_t NA, threshold_p 0.001".
std::string table_facts(const Study& study);

/// Reads the record. Throws Refusal when preprocessing has not been run in the folder, or when the
/// file is not one that preprocessing leaves.
PpRecord read_pp_record();

}  // namespace kvo::maps
