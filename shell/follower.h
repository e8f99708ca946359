#pragma once

// Following a file that another process appends to. There are three difficulties: the end of the
// file is never final; waiting for more must cost next to nothing and keep the window alive; and
// the writer may disappear without saying so.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "util/handles.h"
#include "util/process.h"

/// Reads a growing file line by line as Q_first_line splits it.
class Q_follower {
 public:
  /// Follows `file`, which is open for reading and was opened by the name `path`.
  Q_follower(Q_file file, const char* path);

  /// The next line without its end; nothing when there is no more data for now. The end of the data
  /// ends a line too, but only when the file has not grown for 10 ms, or with `final`: a writer may
  /// be in the middle of a line.
  std::optional<std::string> next_line(bool final);

  /// Whether next_line() would return at once what has already been read.
  [[nodiscard]] bool has_line() const;

  /// Lets the toolkit run until it has handled something, the file has grown, the writer has ended
  /// or 10 ms have gone by.
  void wait(const Q_watched_command& writer) const;

 private:
  [[nodiscard]] std::string_view rest() const;
  void read_more();

  Q_file file_;
  Q_fd growth_;       // inotify; without one only the time ends a wait
  std::string data_;  // read and not yet consumed from position_ on
  std::size_t position_ = 0;
  // When a read first found nothing new, in microseconds of the monotonic clock. Not when the file
  // last grew: while lines are being shown, nobody checks whether it grows.
  std::optional<std::int64_t> resting_since_;
};
