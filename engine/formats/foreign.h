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
  std::string value;  ///< "" when nothing is said of the height
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
  std::vector<std::string> remarks;  ///< what was dropped or assumed, each a sentence
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

/// The refusal of coordinates whose space is known to nobody.
struct UnknownSpace : Refusal {
  using Refusal::Refusal;
};

/// Makes names fit to be files' and values fit to be cells, converts heights to t values, and gives
/// `space` to studies whose own is unknown. Throws Refusal, naming the file and the place, when two
/// studies have one name, a number is none, a value cannot be a column's, or the space of a study
/// is known to nobody (UnknownSpace).
NewStudies new_studies(ForeignStudies foreign, const std::string& path, Space space);

/// The sample; nothing where nobody has said its size.
std::optional<Sample> sample_of(const NewStudy& study);

/// The name that the study had before it was made fit.
std::string original_name(const NewStudy& study);

/// A study's name, or a column's, made of any text: what cannot stand in one becomes "_" or "-".
std::string fit_name(std::string_view text);

}  // namespace kvo::formats
