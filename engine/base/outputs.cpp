#include "engine/base/outputs.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "engine/base/exists.h"
#include "engine/base/refusal.h"
#include "engine/base/text_file.h"
#include "util/text.h"
#include "util/whole_file.h"
#include "workspace/files/file_names.h"

namespace kvo::base {

namespace {

const std::string stage = ".kvo_new";
const std::string sub_folder = KVO_STUDY_MAPS_FOLDER;
const std::string journal = stage + "/moves";
const std::string move_word = "move ";
const std::string remove_word = "remove ";

[[noreturn]] void refuse_folder(const std::string& what) {
  throw Refusal("The working folder cannot be written: " + what + ".");
}

Q_fd lock_folder(int kind) {
  Q_fd folder(open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!folder) refuse_folder(std::strerror(errno));
  // On file systems without locks we go without.
  if (flock(folder.get(), kind | LOCK_NB) != 0 && errno == EWOULDBLOCK)
    throw Refusal("Another command is running in this folder. Please wait until it has ended.");
  return folder;
}

/// Whether the name stands for a file of the working folder or of its folder "pp", and nowhere
/// else. Names with control characters, such as the end of a line, cannot be listed in the journal.
bool is_output_name(std::string_view name) {
  if (name.starts_with(sub_folder + "/")) name.remove_prefix(sub_folder.size() + 1);
  return !name.empty() && name.front() != '.' && Q_stripped(name) == name &&
         std::none_of(name.begin(), name.end(), [](char c) {
           return c == '/' || static_cast<unsigned char>(c) < ' ' || c == '\x7F';
         });
}

/// The journal is removed first, so that a half-removed folder is not taken for a complete command.
void discard() {
  unlink(journal.c_str());
  std::error_code ignored;
  std::filesystem::remove_all(stage, ignored);
}

bool is_folder(const std::string& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

/// Whether the name may be moved or removed: a link in the place of a folder would lead elsewhere.
bool stays_inside(const std::string& name) {
  return is_output_name(name) && (!name.starts_with(sub_folder + "/") || is_folder(sub_folder));
}

/// Some file systems cannot flush a folder; that is no error.
bool flush_folder(const std::string& path) {
  const Q_fd folder(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  return !folder || fsync(folder.get()) == 0 || errno == EINVAL;
}

/// The journal stays, and the moves are made by whoever opens the folder next.
[[noreturn]] void refuse_move(const std::string& what) {
  const std::string reason = std::strerror(errno);
  throw Refusal("The results are complete, but " + what + ": " + reason +
                ". The next command in this folder puts them in their places first.");
}

void make_sub_folder() {
  if (mkdir(sub_folder.c_str(), 0777) != 0 && errno != EEXIST)
    refuse_move("the folder '" + sub_folder + "' cannot be made");
}

void make_move(const std::string& name) {
  const std::string from = stage + "/" + name;
  if (!stays_inside(name) || !entry_exists(from)) return;
  if (rename(from.c_str(), name.c_str()) != 0) refuse_move("'" + name + "' cannot be replaced");
}

void make_removal(const std::string& name) {
  if (!stays_inside(name) || unlink(name.c_str()) == 0) return;
  if (errno != ENOENT && errno != EISDIR) refuse_move("'" + name + "' cannot be removed");
}

/// Makes the moves of the journal that have not been made.
void make_moves() {
  const std::string moves = read_text(journal);
  const bool has_sub_folder = is_folder(stage + "/" + sub_folder);
  if (has_sub_folder) make_sub_folder();
  for (const TextLine& line : filled_lines(moves)) {
    if (line.text.starts_with(move_word)) {
      const std::string name(line.text.substr(move_word.size()));
      if (has_sub_folder || name.find('/') == std::string::npos) make_move(name);
    } else if (line.text.starts_with(remove_word)) {
      make_removal(std::string(line.text.substr(remove_word.size())));
    }
  }
  if (!flush_folder(sub_folder) || !flush_folder(".")) refuse_move("the disk does not take them");
  discard();
}

Leftovers recover_locked() {
  if (!entry_exists(stage)) return Leftovers::none;
  // A link, or anything but a folder, is not ours to follow.
  if (is_folder(stage) && entry_exists(journal)) {
    make_moves();
    return Leftovers::completed;
  }
  discard();
  return Leftovers::discarded;
}

/// Whether the system would allow a move into a folder, or a removal: nothing may stop the moves
/// once they have begun. `folder` is what its entries are looked up in, `done` what is done to the
/// entry.
void check_owner(const std::string& name, const std::string& folder, const std::string& done) {
  struct stat old {
  }, place{};
  if (lstat(name.c_str(), &old) != 0) return;
  const uid_t user = geteuid();
  if (user != 0 && stat(folder.c_str(), &place) == 0 && (place.st_mode & S_ISVTX) != 0 &&
      user != place.st_uid && user != old.st_uid)
    throw Refusal("'" + name + "' cannot be " + done +
                  ": it belongs to another user, and the folder lets nobody replace the files of "
                  "others.");
}

void check_place(const std::string& name, const std::string& folder) {
  if (is_folder(name)) throw Refusal("'" + name + "' cannot be replaced: it is a folder.");
  check_owner(name, folder, "replaced");
}

void check_sub_folder() {
  if (!entry_exists(sub_folder)) return;
  if (!is_folder(sub_folder)) throw Refusal("'" + sub_folder + "' is not a folder.");
  if (access(sub_folder.c_str(), W_OK | X_OK) != 0)
    throw Refusal("The folder '" + sub_folder + "' cannot be written: " + std::strerror(errno) +
                  ".");
}

}  // namespace

Leftovers recover_folder() {
  if (!entry_exists(stage)) return Leftovers::none;
  const Q_fd lock = lock_folder(LOCK_EX);
  return recover_locked();
}

Q_fd share_folder() {
  return lock_folder(LOCK_SH);
}

void check_folder_writable() {
  if (access(".", W_OK | X_OK) != 0) refuse_folder(std::strerror(errno));
}

Outputs::Outputs() : lock_(lock_folder(LOCK_EX)) {
  recover_locked();
  if (mkdir(stage.c_str(), 0777) == 0) return;
  if (errno == EEXIST)
    throw Refusal("'" + stage + "', which an earlier command has left, cannot be removed. Please " +
                  "have its owner remove it.");
  refuse_folder(std::strerror(errno));
}

Outputs::~Outputs() {
  if (!entry_exists(journal)) discard();
}

std::string Outputs::path_of(const std::string& name) {
  if (!is_output_name(name)) throw Refusal("'" + name + "' cannot be the name of an output.");
  if (name.find('/') != std::string::npos) mkdir((stage + "/" + sub_folder).c_str(), 0777);
  moved_.push_back(name);
  return stage + "/" + name;
}

void Outputs::write_text(const std::string& name, std::string_view text) {
  if (!Q_write_whole(path_of(name).c_str(), text))
    throw Refusal("'" + name + "' cannot be written: " + std::strerror(errno) + ".");
}

void Outputs::remove(const std::string& name) {
  if (is_output_name(name)) removed_.push_back(name);
}

void Outputs::commit() {
  const bool has_sub_folder = is_folder(stage + "/" + sub_folder);
  if (has_sub_folder) check_sub_folder();
  std::string moves;
  for (const std::string& name : moved_) {
    check_place(name, name.find('/') == std::string::npos ? "." : sub_folder);
    moves += move_word + name + "\n";
  }
  for (const std::string& name : removed_)
    if (std::find(moved_.begin(), moved_.end(), name) == moved_.end()) {
      check_owner(name, name.find('/') == std::string::npos ? "." : sub_folder, "removed");
      moves += remove_word + name + "\n";
    }
  // One flush for all: flushing each file would wait for the disk once per file.
  if (syncfs(lock_.get()) != 0) refuse_folder(std::strerror(errno));
  if (!Q_write_whole(journal.c_str(), moves)) refuse_folder(std::strerror(errno));
  if (!flush_folder(stage)) {
    const std::string reason = std::strerror(errno);
    discard();
    refuse_folder(reason);
  }
  make_moves();
}

}  // namespace kvo::base
