#pragma once

// Runs a companion program that reports its progress line by line, with the window alive.

#include <functional>
#include <optional>
#include <string>

/// Takes a line of a companion's output, without its line end; `more` tells that the next line is
/// there already. True ends the run.
using Q_line_taker = std::function<bool(const std::string& line, bool more)>;

/// Starts the program of the program folder with the arguments, which go to the system shell as
/// they are, shows the busy pop-up and hands each line of the program's standard output to
/// `take_line` until that returns true or the program is gone. The output goes through a temporary
/// file of the working folder, which is removed at the end. Nothing when `take_line` ended the run,
/// else why the program is gone, as plain text.
std::optional<std::string> Q_run_companion(const char* program, const std::string& arguments,
                                           const Q_line_taker& take_line);
