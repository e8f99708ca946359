#pragma once

// Operations on texts and lists of texts.

#include <string>
#include <string_view>

#include "util/files.h"
#include "util/q_string.h"

/// White space as the C locale has it.
inline constexpr std::string_view Q_WHITE_SPACE = " \t\n\v\f\r";

/// Appends the formatted text.
[[gnu::format(printf, 2, 3)]] void Q_strcat(Q_string& destination, const char* format, ...);

/// The text without white space at both ends; without that at its end alone.
std::string_view Q_trimmed(std::string_view text);
std::string_view Q_trimmed_end(std::string_view text);

/// Removes leading and trailing white space and makes each run of white space inside one blank.
void Q_trim(Q_string& text);

/// Replaces the characters that may not stand in a file name or an identifier of the command
/// language: "mean 1: a/b" becomes "mean_1._a-b".
void Q_replace_escape(Q_string& text);

/// Why the text cannot be a name of a study or map, which becomes part of file names: "is empty",
/// "begins with a full stop"; null when it can.
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
