#pragma once

// All or nothing: the outputs of a command take their places together, or the folder stays as it
// was. They are first written below a hidden folder of the working folder. A list of all the moves
// that are to follow is written last, whole or not at all; from then on the command has happened,
// and whoever opens the folder next makes the moves that a crash has left undone.

#include <string>
#include <string_view>
#include <vector>

#include "util/handles.h"

namespace kvo::base {

enum class Leftovers { none, discarded, completed };

/// Cleans up the working folder after a command that was killed: discards outputs that were not
/// complete, finishes the moves of those that were. Throws Refusal when another command is running
/// in the folder.
Leftovers recover_folder();

/// Keeps commands that change the folder out of it as long as the handle lives. Several processes
/// may do so at once. Throws Refusal when such a command is running.
Q_fd share_folder();

/// Throws Refusal when the working folder cannot be written.
void check_folder_writable();

class Outputs {
 public:
  /// Locks the working folder, recovers it and begins. Throws Refusal when another command is
  /// running in it or it cannot be written.
  Outputs();
  /// Discards everything that was not committed.
  ~Outputs();
  Outputs(const Outputs&) = delete;
  Outputs& operator=(const Outputs&) = delete;

  /// The temporary path for the output that will be called `name` (in the working folder, or in its
  /// folders "pp" and "bids"). Not to be called by two threads at once.
  std::string path_of(const std::string& name);
  /// Writes a whole text as the output `name`.
  void write_text(const std::string& name, std::string_view text);
  /// Removes a file of the working folder on commit; a missing file is no error, and a name that no
  /// output can have is ignored.
  void remove(const std::string& name);

  /// Puts everything in its place. Throws Refusal, with nothing changed, when a place is taken by
  /// something that is not a file or may not be replaced by this user, or the disk does not take
  /// the outputs. When the disk fails between two moves, the Refusal says that the next command in
  /// the folder makes the rest.
  void commit();

 private:
  Q_fd lock_;
  std::vector<std::string> moved_, removed_;
};

}  // namespace kvo::base
