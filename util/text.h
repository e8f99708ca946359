#pragma once

// Operations on texts and lists of texts.

#include <string>
#include <string_view>
#include <vector>

#include "util/files.h"
#include "util/q_string.h"

/// White space as the C locale has it.
inline constexpr std::string_view Q_WHITE_SPACE = " \t\n\v\f\r";

/// Appends the formatted text.
[[gnu::format(printf, 2, 3)]] void Q_strcat(Q_string& destination, const char* format, ...);

/// The text without white space at both ends; without that at its end alone.
std::string_view Q_stripped(std::string_view text);
std::string_view Q_stripped_end(std::string_view text);
/// The same with each run of white space inside it made one blank.
std::string Q_trimmed(std::string_view text);
/// Does that to a Q string.
void Q_trim(Q_string& text);
/// The parts of the text that white space separates; none is empty.
std::vector<std::string_view> Q_words(std::string_view text);

/// The decimal number that the text begins with, as strtod() reads it in the C locale (white space
/// before it is skipped, infinity and "not a number" count); 0 when it begins with none. Of a
/// hexadecimal number it is the 0 in front.
double Q_leading_number(std::string_view text);
/// A whole number; from 10 000 on with narrow blanks between the thousands.
std::string Q_count_text(std::size_t count);
/// "1 line", "2 lines", the number as Q_count_text has it.
std::string Q_counted(std::size_t count, const char* one, const char* several);

/// SHA-256 of the bytes, in hexadecimal, and its 32 bytes.
std::string Q_sha256(std::string_view bytes);
std::string Q_sha256_bytes(std::string_view bytes);

/// Whether the character is a control character of ASCII.
bool Q_is_control(char character);
bool Q_is_utf8(std::string_view text);

/// Replaces the characters that may not stand in a file name or an identifier of the command
/// language: "mean 1: a/b" becomes "mean_1._a-b".
void Q_replace_escape(Q_string& text);

/// The most bytes of a name of a study or map: the longest ending of an output and that of a
/// temporary file must still fit into the 255 bytes of a file name.
inline constexpr std::size_t Q_NAME_MAX = 200;
/// Why the text cannot be such a name: "is empty", "begins with a full stop"; null when it can.
const char* Q_name_fault(std::string_view name);

/// The text as Pango markup that shows it literally; bytes that are not UTF-8 become U+FFFD.
std::string Q_markup_escape(std::string_view text);

/// The formatted text at its exact length, or the fatal error "Insufficient memory\n".
[[gnu::format(printf, 1, 2)]] std::string Q_malloc_string(const char* format, ...);

/// Makes the first n slots of the list copies of the n C strings given as the third and the
/// following arguments, growing the list when it has fewer slots.
void Q_malloc_vs_string(Q_string_list& list, int n, const char* first, ...);

/// Index of the first of the first n entries that equals the formatted text byte for byte; -1 when
/// none does.
[[gnu::format(printf, 3, 4)]] int Q_get_string_pos(int n, const Q_string_list& list,
                                                   const char* format, ...);

/// Sorts the first n entries in ascending byte order; equal entries keep their order.
void Q_sort_string_asc(int n, Q_string_list& list);
