#include "workspace/load_table.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <optional>

#include "shell/console.h"
#include "util/files.h"
#include "util/read_file.h"
#include "util/text.h"
#include "util/whole_file.h"
#include "workspace/files/file_names.h"
#include "workspace/files/study_table.h"

namespace {

/// The file that the study table was loaded from.
struct Table_file {
  std::string path;
  struct stat folder {};               ///< tells whether the path still leads there
  std::optional<std::string> content;  ///< as read or last written; nothing when there was no file
};
Table_file loaded;

struct stat folder_of(const std::string& path) {
  const std::filesystem::path folder = std::filesystem::path(path).parent_path();
  struct stat status {};
  [[maybe_unused]] const int ignored = stat(folder.empty() ? "." : folder.c_str(), &status);
  return status;
}

}  // namespace

void kvotable_load(const char* path) {
  KVO_TableT = Q_table();  // before reading, so that two large tables are never held at once
  loaded = {path, folder_of(path), std::nullopt};
  if (Q_file_exists("%s", path) != 0) {
    Q_read_fault fault;
    loaded.content = Q_table_read(path, fault);
    if (!loaded.content) Q_die_of_read_fault(path, fault);
  }
  KVO_TableT = kvotable_read(loaded.content);
  if (!kvotable_remove_leftover(KVO_TableT)) return;
  if (!kvotable_replace(Q_table_text(KVO_TableT), Q_write_whole,
                        " and still has the temporary variable that a jackknife analysis left "
                        "when it was interrupted."))
    return;
  Q_print_warning(
      0,
      "A jackknife analysis was interrupted; the temporary variable that it had left in "
      "'%s' has been removed.\n",
      Q_markup_escape(path).c_str());
}

void kvotable_load_after(const std::string& command) {
  const std::vector<std::string_view> words = Q_words(command);
  if (!words.empty() && words[0] == "import" && kvotable_fault(KVO_TABLE_FILE).empty())
    kvotable_load(KVO_TABLE_FILE);
}

std::string kvotable_obstacle() {
  const struct stat folder = folder_of(loaded.path);
  if (folder.st_dev != loaded.folder.st_dev || folder.st_ino != loaded.folder.st_ino)
    return "the study table in memory is that of another folder; 'Change meta-analysis' reads this "
           "one's";
  Q_read_fault ignored;
  if (Q_table_read(loaded.path.c_str(), ignored) != loaded.content)
    return "another program has changed it since it was read; 'Change meta-analysis' reads it "
           "again";
  const std::optional<std::string> loss = Q_table_loss(loaded.content.value_or(""));
  return loss ? *loss + ", and what is beyond would be lost" : "";
}

std::string kvotable_file_text() {
  if (loaded.content && kvotable_read(loaded.content) == KVO_TableT) return *loaded.content;
  return Q_table_text(KVO_TableT);
}

bool kvotable_replace(std::string_view text, Kvo_file_writer write, const char* consequence) {
  std::string reason = kvotable_obstacle();
  if (reason.empty() && write(loaded.path.c_str(), text)) {
    loaded.content = std::string(text);
    return true;
  }
  if (reason.empty()) reason = std::strerror(errno);
  Q_print_warning(0, "The file '%s' could not be written (%s)%s\n",
                  Q_markup_escape(loaded.path).c_str(), Q_markup_escape(reason).c_str(),
                  consequence);
  return false;
}
