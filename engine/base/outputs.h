#pragma once

// All or nothing: the outputs of a command take their places together, or the folder stays as it
// was. They are first written to a hidden folder inside the working folder. The list of moves to
// make is written last, whole or not at all; from then on the command has happened, and whoever
// opens the folder next makes the moves that a crash left undone.

#include <string>
#include <string_view>
#include <vector>

#include "util/handles.h"

namespace kvo::base {

enum class Leftovers { none, discarded, completed };

/// Cleans up the working folder after a command that was killed: discards incomplete outputs, and
/// finishes the moves of complete ones. Throws Refusal when another command is running in the
/// folder.
Leftovers recover_folder();

/// Keeps commands that change the folder out of it while the handle lives. Several processes may
/// hold one at once. Throws Refusal when such a command is running.
Q_fd share_folder();

/// Throws Refusal when the working folder cannot be written.
void check_folder_writable();

class Outputs {
 public:
  /// Locks the working folder, recovers it and begins. Throws Refusal when another command is
  /// running in it or it cannot be written.
  Outputs();
  /// Discards everything not committed.
  ~Outputs();
  Outputs(const Outputs&) = delete;
  Outputs& operator=(const Outputs&) = delete;

  /// The temporary path for the output that will be called `name` (in the working folder, or in its
  /// folders "pp" and "bids"). Must not be called by two threads at once.
  std::string path_of(const std::string& name);
  /// Writes the text as the output `name`.
  void write_text(const std::string& name, std::string_view text);
  /// Removes a file of the working folder on commit; a missing file is no error, and a name that no
  /// output could have is ignored.
  void remove(const std::string& name);

  /// Puts everything in its place. Throws Refusal, with nothing changed, when a place is taken by
  /// something that is not a file or that this user may not replace, or the disk cannot take the
  /// outputs. When the disk fails between two moves, the Refusal says that the next command in the
  /// folder makes the remaining ones.
  void commit();

 private:
  Q_fd lock_;
  std::vector<std::string> moved_, removed_;
};

}  // namespace kvo::base
