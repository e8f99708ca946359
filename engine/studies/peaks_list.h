#pragma once

// The text of a peaks file and its content, without regard to the study: one peak per line, with
// coordinates and heights as written, so that nothing is lost in a round trip.

#include <array>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "engine/images/image.h"
#include "engine/studies/studies_layer.h"

namespace kvo::studies {

struct WrittenPeak {
  std::array<std::string, 3> at;  ///< x, y and z in mm
  std::string height;             ///< a t value, or "p" or "n" for the sign alone
  std::string comment;            ///< the text after "#" on its line
  std::size_t line = 0;           ///< of the file
  bool operator==(const WrittenPeak&) const = default;
};

struct PeaksList {
  Space space = Space::unknown;
  std::vector<WrittenPeak> peaks;
  std::vector<std::string> notes;  ///< comment lines other than that of the space
};

/// No head reaches this far from the anterior commissure; larger numbers are typing errors or units
/// other than mm.
inline constexpr double max_peak_mm = 200;
inline constexpr std::size_t max_peaks = 5000;

/// The list in the text of a peaks file. Throws Refusal, naming the path and the line, when it is
/// malformed or has no line that names the space.
PeaksList peaks_list_of(const std::string& path, std::string_view text);

/// The text of a peaks file.
std::string peaks_text(const PeaksList& list);

/// The space of that name, ignoring case; unknown for others.
Space space_named(std::string_view name);
/// "MNI" or "Talairach".
const char* name_of(Space space);

}  // namespace kvo::studies
