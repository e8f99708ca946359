#pragma once

// Reading the small text files of the working folder, which are untrusted input.

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "engine/base/refusal.h"
#include "util/read_file.h"

namespace kvo::base {

/// The Refusal for a file that could not be read.
Refusal unread(const std::string& path, const Q_read_fault& fault);

/// The content of a text file as Q_read_text gives it. Throws Refusal, naming the file, when that
/// fails or the file is not text (it has a byte of value 0 or 255, or a line longer than any reader
/// in the suite accepts).
std::string read_text(const std::string& path);

struct TextLine {
  std::string_view text;
  std::size_t number;  ///< counted from 1, blank lines included
};

/// The lines of a text that are not blank, without trailing white space. A line ends at a line
/// feed, a carriage return, or one followed by the other.
std::vector<TextLine> filled_lines(std::string_view text);

/// The text parsed as a number in C notation; nothing unless the whole text is a finite number.
std::optional<double> number_of(std::string_view text);

/// The shortest text that reads back as the same number: "0.005", "1e-07"; the same without an
/// exponent: "0.0000001".
std::string text_of(double number);
std::string decimals_of(double number);

/// Q_sha256 of a file of any kind, up to 1 GiB. Throws Refusal when it cannot be read.
std::string file_checksum(const std::string& path);

/// "'path', line 7: " to begin a refusal with.
std::string at_line(const std::string& path, std::size_t line);

}  // namespace kvo::base
