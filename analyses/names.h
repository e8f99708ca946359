#pragma once

// Names that go into command lines. The shell splits a command line into words, and the command
// language splits the words at its own punctuation: what the shell would act on is quoted, and a
// name that the language cannot hold is refused.

#include <string>
#include <string_view>

/// The name as files and commands can have it: blanks and characters of the command language are
/// replaced (Q_replace_escape).
std::string kvo_safe_name(std::string_view typed);

/// Why the command language cannot hold the name, as a message for the user that shows the name and
/// the character; empty when it can.
std::string kvo_name_refusal(std::string_view name);

/// The name as a word of a command line: as it is, or quoted when the shell would act on it.
std::string kvo_word(std::string_view name);

/// Why a name cannot be that of a map, in the engine's words; empty when it can.
std::string kvo_map_name_refusal(std::string_view name);
/// kvo_name_refusal of a name that becomes an argument of a command and the beginning of a file
/// name as it is typed: the engine takes it, too.
std::string kvo_file_name_refusal(std::string_view name);

/// Why the path cannot stand in a comment of the batch, which is run line by line; empty when it
/// can. Only control characters are refused.
std::string kvo_path_refusal(std::string_view path);
