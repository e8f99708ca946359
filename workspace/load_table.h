#pragma once

// The study table's file: reading it, and the one way in which the front end writes it.

#include <string>
#include <string_view>

/// Loads the file of a meta-analysis as the study table. A variable that an interrupted jackknife
/// left is removed from the table and the file, with a console warning.
void kvotable_load(const char* path);

/// Why the file that was loaded last must not be written over now, as a clause; empty when it may
/// be: it is what was read from it or written to it last, in the folder that the path leads to, and
/// all that it held is in the table.
std::string kvotable_obstacle();

/// What that file holds for the study table: the bytes that were read, as long as they stand for
/// it.
std::string kvotable_file_text();

/// Writes a file, as Q_write_whole and Q_write_whole_or_die do.
using Kvo_file_writer = bool (*)(const char* path, std::string_view text);
/// Replaces that file by the text. False, with the file as it was and a console warning that ends
/// with the consequence, when there is an obstacle or the writer fails.
[[nodiscard]] bool kvotable_replace(std::string_view text, Kvo_file_writer write,
                                    const char* consequence);
