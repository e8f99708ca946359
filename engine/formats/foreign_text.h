#pragma once

// Texts that people and spreadsheets have written: their bytes, and their numbers.

#include <string>
#include <string_view>

#include "engine/formats/formats_layer.h"
#include "engine/images/image.h"

namespace kvo::formats {

struct ForeignText {
  std::string text;     ///< UTF-8
  bool latin1 = false;  ///< the file was no UTF-8 and has been read as Latin-1
};

/// The text of a file of up to 64 MiB. Throws Refusal, naming the file, when it cannot be read or
/// is no text.
ForeignText read_foreign_text(const std::string& path);

/// A number as it is written in C: minus signs and dashes of typesetters become "-", blanks, marks
/// of significance and the sign "+" go, and with `decimal_comma` commas become full stops. What is
/// no number stays recognisable.
std::string plain_number(std::string_view text, bool decimal_comma);

/// The text with line ends and control characters made blanks.
std::string one_line(std::string_view text);

/// The beginning of a text, so many bytes at most and no half character.
std::string cut_at_character(std::string text, std::size_t most);

/// The letters and digits of a text in small letters: "T-value" is "tvalue".
std::string bare_word(std::string_view text);

/// The space that people call so: "MNI152", "ICBM 2009c", "TAL"; unknown for others.
Space space_called(std::string_view name);

}  // namespace kvo::formats
