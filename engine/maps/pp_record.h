#pragma once

// "kvo_pp.txt": what preprocessing was asked for, what it worked on and what it made. Later
// commands take their parameters from it, and see from it whether inputs and maps are still the
// same.

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
  /// For each input file and each study's map its checksum, and for each study what the table says
  /// of it that its maps depend on.
  std::map<std::string, std::string> checksums, studies;

  [[nodiscard]] std::string text() const;
};

/// What the table says of a study that its maps depend on: "n1 25, n2 NA, threshold_t 3.1", or
/// "n1 25, n2 NA, threshold_t NA, threshold_p 0.001".
std::string table_facts(const Study& study);

/// Reads the record. Throws Refusal when preprocessing has not been run in the folder, or when the
/// file is not as preprocessing leaves it.
PpRecord read_pp_record();

}  // namespace kvo::maps
