#pragma once

// The batch: the record of commands in the second console pane, kept in the working folder's file
// "kvo_batch.txt".

#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

/// A batch file's content as the pane shows it.
struct Q_batch_shown {
  /// The lines (which end at a line feed, a carriage return or a byte of value 255) joined by line
  /// feeds, without a final line feed. A line that is not UTF-8, which a pane cannot hold, is read
  /// as Latin-1, and a byte of value 0 becomes U+2400.
  std::string text;
  std::unordered_map<std::string, std::string> bytes;  ///< of each such line, by what is shown
};
Q_batch_shown Q_show_batch(std::string_view file_content);
/// The file content that a pane's text stands for: lines that are as they were shown have their
/// bytes again.
std::string Q_batch_content(const std::string& pane_text, const Q_batch_shown& shown);

/// The lines of a pane's text, split at every line feed; never empty.
std::vector<std::string> Q_batch_lines(const std::string& pane_text);

/// Number, counted from 1, of the first line that is too long for a Q string; nothing when all fit.
std::optional<std::size_t> Q_batch_long_line(const std::vector<std::string>& lines);

/// Whether the shell would do more with a line of a batch than to hand its words to the engine: run
/// other commands or open files. Comments are not for the shell at all.
bool Q_batch_runs_in_shell(std::string_view line);

/// Fills the batch pane from "kvo_batch.txt"; empties it when there is no such file.
void kvo3_batch_print();
/// Handler of the save action: writes the pane to "kvo_batch.txt" and says so. Asks first when the
/// file is not what was loaded or saved last, or has bytes that would be lost.
void kvo3_batch_save();
/// Handler of the run action: names the lines with which the shell would do more than to start the
/// engine, then runs the pane's lines in order; records nothing. Ends with a command
/// that the user cancels, and when the user closes the main window. Does nothing while other work
/// goes on.
void kvo3_batch_run();
