#pragma once

// The text of a peaks file and what it says, without knowing the study: one peak a line, with the
// coordinates and heights as they are written, so that nothing is lost on the way through.

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
  std::string comment;            ///< what stands behind "#" in its line
  std::size_t line = 0;           ///< of the file
  bool operator==(const WrittenPeak&) const = default;
};

struct PeaksList {
  Space space = Space::unknown;
  std::vector<WrittenPeak> peaks;
  std::vector<std::string> notes;  ///< comment lines but for that of the space
};

/// No head reaches as far from the anterior commissure; numbers beyond are slips of the pen or
/// units other than mm.
inline constexpr double max_peak_mm = 200;
inline constexpr std::size_t max_peaks = 5000;

/// The list that the text of a peaks file holds. Throws Refusal, naming the path and the line, when
/// it is not as it should be or has no line with the space.
PeaksList peaks_list_of(const std::string& path, std::string_view text);

/// The text of a peaks file.
std::string peaks_text(const PeaksList& list);

/// The space of that name, in capitals or not; unknown for others.
Space space_named(std::string_view name);
/// "MNI" or "Talairach".
const char* name_of(Space space);

}  // namespace kvo::studies
