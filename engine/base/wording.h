#pragma once

// Texts and numbers as reports show them.

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

namespace kvo::base {

/// The text as valid UTF-8 that XML allows: invalid bytes and control characters become U+FFFD;
/// tabs and line ends become blanks.
std::string printable_text(std::string_view text);

/// The same with the characters that HTML would read as markup escaped, also for attributes.
std::string html_escaped(std::string_view text);
/// The text that became this.
std::string html_unescaped(std::string_view escaped);

/// A number with that many decimals, a true minus sign and no negative zero; "–" when it is not
/// finite.
std::string decimal_text(double value, int decimals);

/// A probability: three decimals, two significant digits below 0.001, a power of ten below 0.0001
/// ("2.4 × 10⁻⁷"), "–" when it is not finite.
std::string p_text(double p);
/// "p = 0.021"; "p > 0.999" where p_text() would round up to 1.
std::string p_phrase(double p);

/// "a", "a and b", "a, b and c".
std::string listed(std::span<const std::string> names, const char* last = " and ");

/// The version, "4.31", and the program with it, "KVO 4.31".
std::string version_text();
std::string program_text();

}  // namespace kvo::base
