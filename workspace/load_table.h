#pragma once

// The study table's file: reading it, and the one way in which the front end writes it.

#include <string>
#include <string_view>

/// Loads the file of a meta-analysis as the study table. A variable that an interrupted jackknife
/// left is removed from the table and the file, with a console warning.
void kvotable_load(const char* path);

/// Loads the working folder's table again after a command that may have added studies to it, unless
/// it cannot be read.
void kvotable_load_after(const std::string& command);

/// Why the file that was loaded last must not be overwritten now, as a clause. Empty when it may
/// be: its content is what was last read or written, the path still leads to the same folder, and
/// everything in the file is in the table.
std::string kvotable_obstacle();

/// The content of that file for the study table as it is now: the bytes that were read, if they
/// still stand for the same table.
std::string kvotable_file_text();

/// Writes a file, as Q_write_whole and Q_write_whole_or_die do.
using Kvo_file_writer = bool (*)(const char* path, std::string_view text);
/// Replaces that file's content by the text. When there is an obstacle or the writer fails, the
/// file stays as it was, a console warning ends with the consequence, and the result is false.
[[nodiscard]] bool kvotable_replace(std::string_view text, Kvo_file_writer write,
                                    const char* consequence);
