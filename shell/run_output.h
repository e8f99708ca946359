#pragma once

// The temporary files "kvo_%i.tmp" of the working folder through which companion programs hand over
// what they write.

#include "util/handles.h"
#include "util/q_string.h"

/// An empty file of a new name, for this user alone, which is removed at the end of the scope. A
/// file that is there already is left alone. The lock on it tells that its owner is alive.
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

/// Removes such files of this user's that a program has left in the current folder when it was
/// killed. Links, and files whose owner is alive or cannot be told, stay.
void Q_remove_dead_outputs();
