#pragma once

// The text of a batch: how its file and its pane stand for each other, and what its lines do.

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

/// The lines with which the shell would do more than to hand their words to the engine (run other
/// commands, open files), as markup: each behind a line feed and its number, counted from 1. Empty
/// when there are none. Comments never reach the shell.
std::string Q_batch_shell_lines(const std::vector<std::string>& lines);

/// What the user is asked before the batch file gets the wanted content: `known` is what it had
/// when it was loaded or saved last (nothing when there was none), `on_disk` what it has now
/// (nothing when it cannot be read). Empty when nothing would be lost.
std::string Q_batch_overwrite_question(const std::optional<std::string>& known,
                                       const std::optional<std::string>& on_disk,
                                       const std::string& wanted);
