#pragma once

// The temporary files "kvo_%i.tmp" in the working folder that companion programs write their output
// to.

#include "util/handles.h"
#include "util/q_string.h"

/// An empty file with a new name that only this user can access, removed at the end of the scope.
/// An existing file is never touched. A lock on the file shows that its owner is alive.
class Q_run_output {
 public:
  /// A file that cannot be made is the fatal error "File '%s' not writable".
  Q_run_output();
  Q_run_output(const Q_run_output&) = delete;
  Q_run_output& operator=(const Q_run_output&) = delete;
  ~Q_run_output();

  [[nodiscard]] const Q_string& path() const { return path_; }
  /// A stream that reads the file, from its beginning.
  [[nodiscard]] Q_file take_reader() const;

 private:
  Q_string path_;
  Q_fd fd_;
};

/// Removes the files of this user that a program left in the current folder when it was killed.
/// Links stay, and so do files whose owner is alive or unknown.
void Q_remove_dead_outputs();
