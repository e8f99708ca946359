#pragma once

// Texts that people and spreadsheets have written: their bytes, and their numbers.

#include <string>
#include <string_view>

#include "engine/formats/formats_layer.h"
#include "engine/images/image.h"

namespace kvo::formats {

struct ForeignText {
  std::string text;     ///< UTF-8
  bool latin1 = false;  ///< the file was not UTF-8 and was read as Latin-1
};

/// The text of a file of up to 64 MiB. Throws Refusal, naming the file, when it cannot be read or
/// is not text.
ForeignText read_foreign_text(const std::string& path);

/// A number as written in C: typographic minus signs and dashes become "-", blanks, marks of
/// significance and plus signs are dropped, and with `decimal_comma` commas become full stops. What
/// is not a number stays recognisable.
std::string plain_number(std::string_view text, bool decimal_comma);

/// The text with line ends and control characters replaced by blanks.
std::string one_line(std::string_view text);

/// The beginning of a text, of at most `most` bytes and without a partial character.
std::string cut_at_character(std::string text, std::size_t most);

/// The letters and digits of a text in small letters: "T-value" is "tvalue".
std::string bare_word(std::string_view text);

/// The space that people call by this name: "MNI152", "ICBM 2009c", "TAL"; unknown for others.
Space space_called(std::string_view name);

}  // namespace kvo::formats
