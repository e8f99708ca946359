#pragma once

// Studies as another program's file has them, and what they become in a working folder.

#include <array>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "engine/base/refusal.h"
#include "engine/formats/formats_layer.h"
#include "engine/studies/peak_value.h"
#include "engine/studies/peaks_list.h"

namespace kvo::formats {

struct ForeignPeak {
  std::array<std::string, 3> at;  ///< numbers in mm as the file has them
  ValueKind kind = ValueKind::sign;
  std::string value;  ///< "" when the height is not given
  std::string note;
  std::size_t line = 0;  ///< of the file; 0 where it has no lines
};

/// A name and a text, such as a column of the study table and its value.
using NamedText = std::pair<std::string, std::string>;

struct ForeignStudy {
  std::string name;  ///< any text
  Space space = Space::unknown;
  std::vector<NamedText> values;   ///< "n1", "n2" and others
  std::vector<std::string> notes;  ///< lines for the peaks file
  std::vector<ForeignPeak> peaks;
  std::string place;  ///< where in the file, for messages: "line 7"
};

struct ForeignStudies {
  std::vector<ForeignStudy> studies;
  std::vector<std::string> remarks;  ///< what was dropped or assumed, one sentence each
};

/// A study with what its files will hold.
struct NewStudy {
  std::string name;
  std::vector<NamedText> values;  ///< fit to be columns and cells of the study table
  PeaksList peaks;
};

struct NewStudies {
  std::vector<NewStudy> studies;
  std::vector<std::string> remarks;
  std::size_t peaks = 0;
};

/// The Refusal of coordinates in an unknown space.
struct UnknownSpace : Refusal {
  using Refusal::Refusal;
};

/// Makes names fit for files and values fit for cells, converts heights to t values, and gives
/// `space` to studies whose own is unknown. Throws Refusal, naming the file and the place, when two
/// studies have the same name, a number is not one, a value is not allowed in its column, or the
/// space of a study is unknown (UnknownSpace).
NewStudies new_studies(ForeignStudies foreign, const std::string& path, Space space);

/// The sample; nothing when its size is unknown.
std::optional<Sample> sample_of(const NewStudy& study);

/// The name that the study had before it was made fit.
std::string original_name(const NewStudy& study);

/// A study's name, or a column's, made from any text: what is not allowed in one becomes "_" or
/// "-".
std::string fit_name(std::string_view text);

}  // namespace kvo::formats
