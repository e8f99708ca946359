#pragma once

// Writing of a file whole or not at all.

#include <string_view>

/// Replaces the content of a file, or creates it: the text goes to a temporary file beside it,
/// which is flushed to the disk and then takes the file's name, so that a crash or a full disk
/// leaves the old file. A symbolic link keeps pointing at its target, which is what is replaced.
/// False, with everything as it was, when any step fails.
bool Q_write_whole(const char* path, std::string_view text);
