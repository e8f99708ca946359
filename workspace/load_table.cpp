#include "workspace/load_table.h"

#include <cerrno>
#include <cstring>

#include "shell/console.h"
#include "util/text.h"
#include "util/whole_file.h"
#include "workspace/study_table.h"

void kvotable_load(const char* path) {
  KVO_TableT = Q_table();  // before reading, so that two large tables are never held at once
  KVO_TableT = kvotable_read(path);
  if (!kvotable_remove_leftover(KVO_TableT)) return;
  const std::string file = Q_markup_escape(path);
  Q_print_warning(
      0,
      "A jackknife analysis was interrupted; the temporary variable that it had left in "
      "'%s' has been removed.\n",
      file.c_str());
  if (!Q_write_whole(path, Q_table_text(KVO_TableT))) {
    const char* reason = std::strerror(errno);
    Q_print_warning(0, "The file '%s' could not be written (%s) and still has the variable.\n",
                    file.c_str(), reason);
  }
}
