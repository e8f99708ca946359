#pragma once

// Files of other programs by what their names end with.

#include <optional>
#include <string>
#include <vector>

#include "engine/formats/foreign.h"
#include "engine/formats/peaks_table.h"

namespace kvo::formats {

enum class FileKind { comma_table, tab_table, sleuth, nimads, bundle };

/// What a file of that name holds: ".csv", ".tsv", ".txt" (Sleuth's list, or a table with tabs, as
/// its first line tells when it exists), ".json" or ".zip". Throws Refusal for other endings.
FileKind file_kind(const std::string& path);

/// The studies of a file of any kind but a bundle, ready for the working folder. `space` is that of
/// coordinates of which the file does not say it. Throws Refusal as its reader and new_studies()
/// do. Roles are those of a table's columns; none are guessed.
NewStudies read_foreign(const std::string& path, Space space, const std::vector<Role>& roles = {});

/// The text of a table with one peak a line; nothing of other files.
std::optional<std::string> text_of_table(const std::string& path);

/// The text of a file of such a kind.
std::string foreign_text_of(const std::vector<NewStudy>& studies, FileKind kind);

}  // namespace kvo::formats
