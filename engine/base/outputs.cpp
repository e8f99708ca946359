#include "engine/base/outputs.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
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
/// The folders that may hold outputs besides the working folder itself.
constexpr std::array sub_folders = {KVO_STUDY_MAPS_FOLDER, KVO_RESULTS_FOLDER};
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

/// The folder of the named file: one of sub_folders, or "." for the working folder.
std::string folder_of(std::string_view name) {
  for (const char* folder : sub_folders)
    if (name.starts_with(std::string(folder) + "/")) return folder;
  return ".";
}

std::string staged(const std::string& name) {
  return stage + "/" + name;
}

/// Whether the name is that of a file in the working folder or its sub_folders, and nowhere else.
/// Names with control characters, such as a line feed, cannot be listed in the journal.
bool is_output_name(std::string_view name) {
  if (const std::string folder = folder_of(name); folder != ".")
    name.remove_prefix(folder.size() + 1);
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

/// Whether the name may be moved or removed: a link in place of a folder would lead elsewhere.
bool stays_inside(const std::string& name) {
  return is_output_name(name) && (folder_of(name) == "." || is_folder(folder_of(name)));
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

/// Creates the sub-folders that have been staged.
void make_sub_folders() {
  for (const std::string folder : sub_folders)
    if (is_folder(staged(folder)) && mkdir(folder.c_str(), 0777) != 0 && errno != EEXIST)
      refuse_move("the folder '" + folder + "' cannot be made");
}

void make_move(const std::string& name) {
  const std::string from = staged(name), folder = folder_of(name);
  // A link in place of the staged folder would bring in files from elsewhere.
  if (folder != "." && !is_folder(staged(folder))) return;
  if (!stays_inside(name) || !entry_exists(from)) return;
  if (rename(from.c_str(), name.c_str()) != 0) refuse_move("'" + name + "' cannot be replaced");
}

void make_removal(const std::string& name) {
  if (!stays_inside(name) || unlink(name.c_str()) == 0) return;
  if (errno != ENOENT && errno != EISDIR) refuse_move("'" + name + "' cannot be removed");
}

/// Makes the moves in the journal that are still to be made.
void make_moves() {
  const std::string moves = read_text(journal);
  make_sub_folders();
  for (const TextLine& line : filled_lines(moves)) {
    if (line.text.starts_with(move_word)) {
      make_move(std::string(line.text.substr(move_word.size())));
    } else if (line.text.starts_with(remove_word)) {
      make_removal(std::string(line.text.substr(remove_word.size())));
    }
  }
  if (!std::all_of(sub_folders.begin(), sub_folders.end(), flush_folder) || !flush_folder("."))
    refuse_move("the disk does not take them");
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

/// Refuses a move or removal that the system would not allow: nothing may stop the moves once they
/// have begun. `folder` is the folder of the entry, `done` what would be done to the entry.
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

void check_sub_folder(const std::string& folder) {
  if (!entry_exists(folder)) return;
  if (!is_folder(folder)) throw Refusal("'" + folder + "' is not a folder.");
  if (access(folder.c_str(), W_OK | X_OK) != 0)
    throw Refusal("The folder '" + folder + "' cannot be written: " + std::strerror(errno) + ".");
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
  if (folder_of(name) != ".") mkdir(staged(folder_of(name)).c_str(), 0777);
  moved_.push_back(name);
  return staged(name);
}

void Outputs::write_text(const std::string& name, std::string_view text) {
  if (!Q_write_whole(path_of(name).c_str(), text))
    throw Refusal("'" + name + "' cannot be written: " + std::strerror(errno) + ".");
}

void Outputs::remove(const std::string& name) {
  if (is_output_name(name)) removed_.push_back(name);
}

void Outputs::commit() {
  for (const std::string folder : sub_folders)
    if (is_folder(staged(folder))) check_sub_folder(folder);
  std::string moves;
  for (const std::string& name : moved_) {
    check_place(name, folder_of(name));
    moves += move_word + name + "\n";
  }
  for (const std::string& name : removed_)
    if (std::find(moved_.begin(), moved_.end(), name) == moved_.end()) {
      check_owner(name, folder_of(name), "removed");
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
