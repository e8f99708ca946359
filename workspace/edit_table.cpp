#include "workspace/edit_table.h"
#include "workspace/files/file_names.h"

#include <gtk/gtk.h>
#include <sys/wait.h>

#include <optional>

#include "shell/console.h"
#include "shell/window.h"
#include "util/files.h"
#include "util/process.h"
#include "util/text.h"
#include "workspace/load_table.h"

namespace {

// A shell's exit statuses for a command that cannot be run or found.
constexpr int CANNOT_RUN = 126;
constexpr int NOT_FOUND = 127;

bool started(const std::optional<int>& status) {
  if (!status) return false;
  return !WIFEXITED(*status) ||
         (WEXITSTATUS(*status) != CANNOT_RUN && WEXITSTATUS(*status) != NOT_FOUND);
}

/// As long as it exists, the main window looks insensitive, and clicks on it are discarded.
class Waiting_window {
 public:
  Waiting_window() {
    gtk_widget_set_sensitive(Qw_Window, FALSE);
    // The menu must close and release the pointer before this program stops handling events.
    Q_process_events();
    gdk_flush();
  }
  Waiting_window(const Waiting_window&) = delete;
  Waiting_window& operator=(const Waiting_window&) = delete;
  ~Waiting_window() {
    gdk_flush();
    Q_process_events();
    if (Qw_Window != nullptr) gtk_widget_set_sensitive(Qw_Window, TRUE);
  }
};

/// Tells the window manager that the next program is the answer to the user's click, so that it
/// puts its window in front.
class Startup_notice {
 public:
  Startup_notice() {
    g_setenv("DESKTOP_STARTUP_ID",
             Q_format("kvo_edit_TIME%u", gtk_get_current_event_time()).c_str(), TRUE);
  }
  Startup_notice(const Startup_notice&) = delete;
  Startup_notice& operator=(const Startup_notice&) = delete;
  ~Startup_notice() { g_unsetenv("DESKTOP_STARTUP_ID"); }
};

std::optional<int> run_editor(const Q_string& editor) {
  const Startup_notice notice;
  const Waiting_window window;
  // "exec" puts the editor in the shell's place, so that the shell does not hide how it ended.
  return Q_execute_status("exec %s %s", Q_shell_quoted(editor.str()).c_str(), KVO_TABLE_FILE);
}

}  // namespace

void kvo3_edit_table() {
  const Q_string editor = Q_format("%s/kvo_edit", Qs_ProgramDir.c_str());
  const std::optional<int> status = run_editor(editor);
  if (!started(status))
    Q_print_warning(0, "The table editor '%s' could not be started.\n",
                    Q_markup_escape(editor.str()).c_str());
  else if (*status != 0)
    Q_print_warning(0, "The table editor ended with %s.\n", Q_wait_status_text(*status).c_str());
  kvotable_load(KVO_TABLE_FILE);
}
