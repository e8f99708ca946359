#pragma once

// Runs a companion program that reports its progress line by line, with the window alive.

#include <functional>
#include <optional>
#include <string>

#include "shell/busy.h"

/// Takes a line of a companion's output, without its line end; `more` tells that the next line is
/// there already. True ends the run.
using Q_line_taker = std::function<bool(const std::string& line, bool more)>;

/// A run, from the echo of its command to the last line that is printed about it. The main window
/// takes no input meanwhile, and any other run that is started in spite of that must be refused.
class Q_run {
 public:
  Q_run() : is_only_(!exists_) { exists_ = true; }
  Q_run(const Q_run&) = delete;
  Q_run& operator=(const Q_run&) = delete;
  ~Q_run() {
    if (is_only_) exists_ = false;
  }

  /// Whether it may go on; else says in the console that another run is in progress.
  [[nodiscard]] bool allowed(const char* command) const;

 private:
  static bool exists_;
  bool is_only_;
  Q_input_block block_;
};

/// Starts the program of the program folder with the arguments, which go to the system shell as
/// they are, shows the busy pop-up and hands each line of the program's standard output to
/// `take_line` until that returns true or the program is gone. The output goes through a temporary
/// file of the working folder, which is removed at the end. When the user closes the main window,
/// the run ends at once, while the program carries on to its own end. Returns nothing when
/// `take_line` ended the run, else why the program or the window is gone, as plain text. The
/// shell's complaint about a command line that it cannot parse is handed to `take_line` before
/// that.
std::optional<std::string> Q_run_companion(const char* program, const std::string& arguments,
                                           const Q_line_taker& take_line);
