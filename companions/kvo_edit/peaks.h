#pragma once

// A study's peaks file: where it is, a new one, and the desktop's editor for it.

#include <string>

namespace kvo::edit {

/// Absolute path of the peaks file of a study whose table is at `table_path`. Throws Refusal when
/// the name cannot be a part of a file name.
std::string peaks_path(const std::string& table_path, const std::string& study);

/// Makes a peaks file without peaks that says what its lines are. Throws Refusal, naming the file,
/// when it exists or cannot be written.
void create_peaks_file(const std::string& path);

}  // namespace kvo::edit
