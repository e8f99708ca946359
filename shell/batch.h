#pragma once

// The batch: the record of commands in the second console pane, kept in the working folder's file
// "kvo_batch.txt".

#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// The pane text that a batch file's content stands for: its lines (which end at a line feed, a
/// carriage return or a byte of value 255) joined by line feeds, without a final line feed. Bytes
/// that are not UTF-8, which a pane cannot hold, become U+FFFD.
std::string Q_batch_text(std::string_view file_content);

/// The lines of a pane's text, split at every line feed; never empty.
std::vector<std::string> Q_batch_lines(const std::string& pane_text);

/// Number, counted from 1, of the first line that is too long for a Q string; nothing when all fit.
std::optional<std::size_t> Q_batch_long_line(const std::vector<std::string>& lines);

/// Whether the shell would do more with a line of a batch than to hand its words to the engine: run
/// other commands or open files. Comments are not for the shell at all.
bool Q_batch_runs_in_shell(std::string_view line);

/// Fills the batch pane from "kvo_batch.txt"; empties it when there is no such file.
void kvo3_batch_print();
/// Handler of the save action: writes the pane to "kvo_batch.txt" and says so.
void kvo3_batch_save();
/// Handler of the run action: names the lines with which the shell would do more than to start the
/// engine, then runs the pane's lines in order; records nothing. Ends with a command
/// that the user cancels, and when the user closes the main window. Does nothing while other work
/// goes on.
void kvo3_batch_run();
