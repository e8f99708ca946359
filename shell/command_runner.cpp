#include "shell/command_runner.h"

#include <gdk/gdkkeysyms.h>
#include <sched.h>
#include <sys/wait.h>

#include <algorithm>
#include <string>

#include "shell/busy.h"
#include "shell/console.h"
#include "shell/engine_output.h"
#include "shell/follower.h"
#include "shell/random_id.h"
#include "util/files.h"
#include "util/lines.h"
#include "util/process.h"
#include "util/text.h"

namespace {

constexpr guint ENTER_KEYS[] = {GDK_KEY_Return, GDK_KEY_KP_Enter, GDK_KEY_ISO_Enter,
                                GDK_KEY_3270_Enter};

void show(const Engine_event& event) {
  // A C string ends at a zero byte; what stands behind one is no text.
  const std::string text(event.text.substr(0, event.text.find('\0')));
  switch (event.kind) {
    case Engine_line::empty:
      sched_yield();
      Q_process_events();
      break;
    case Engine_line::done:
      Q_print_done(0);
      break;
    case Engine_line::failed:
      Q_print("", 0, "\n");
      Q_print_warning(0, "%s", text.c_str());
      Q_print("", 0, "\n");
      break;
    case Engine_line::warning:
      Q_print_warning(0, "%s", text.c_str());
      Q_print("", 0, "\n");
      break;
    case Engine_line::action:
      Q_print_action(0, "%s", text.c_str());
      break;
    case Engine_line::dot:
      Q_print("", 0, ".");
      break;
    case Engine_line::cancelled:
      Q_print_cancelled(0);
      break;
    case Engine_line::ok:
      Q_print(Q_GREY, 0, "<b>OK</b>\n");
      break;
    case Engine_line::output:
      Q_print(Q_ENGINE, 0, "%s\n", text.c_str());
      break;
  }
}

/// Why an engine is gone that has not said so itself.
std::string reason(std::optional<int> wait_status) {
  if (!wait_status) return "for an unknown reason";
  std::string text = Q_wait_status_text(*wait_status);
  const int code = WIFEXITED(*wait_status) ? WEXITSTATUS(*wait_status) : 0;
  if (code == 126) text += ", the program could not be started";
  if (code == 127) text += ", the program was not found";
  return text;
}

void follow(Q_follower& output, Q_watched_command& engine) {
  for (;;) {
    // Asked before the read: what the engine wrote before its end is then sure to be read.
    const bool ended = engine.ended();
    const std::optional<std::string> line = output.next_line(ended);
    if (line) {
      const Engine_event event = Q_engine_event(*line);
      show(event);
      if (event.closes()) return;
    } else if (ended) {
      show({Engine_line::failed, Q_format("The engine ended before it finished (%s)",
                                          Q_markup_escape(reason(engine.wait_status())).c_str())
                                     .str()});
      return;
    } else {
      output.wait(engine);
      Q_process_events();
    }
  }
}

void run(const Q_string& command) {
  const int id = Q_runif_int();
  const Q_string path = Q_format("kvo_%i.tmp", id);
  Q_openw_or_die("%s", path.c_str());
  Q_watched_command engine(Q_shell_quoted(Qs_ProgramDir.str() + "/kvo_parse") + " " +
                           command.str() + " > " + path.str());
  {
    Q_follower output(Q_openr_or_die("%s", path.c_str()), path.c_str());
    follow(output, engine);
  }
  Q_rm("%s", path.c_str());
}

}  // namespace

void kvo3_exec_core(bool record, const char* format, ...) {
  Q_FORMAT_ARGUMENTS(command, format);
  Q_trim(command);
  if (command.empty()) return;
  const std::string markup = Q_markup_escape(command.str());
  if (command.str().front() == '#') {
    Q_print(Q_GREY, 0, "%s\n", markup.c_str());
    return;
  }
  Q_print(Q_BLUE, 0, "%s\n", markup.c_str());
  if (record) Q_print("", 1, "%s\n\n", markup.c_str());
  Q_set_busy("KVO", true);
  run(command);
  Q_set_busy("KVO", false);
}

gboolean kvo3_core(GtkWidget* entry, GdkEventKey* event, gpointer /*data*/) {
  if (std::find(std::begin(ENTER_KEYS), std::end(ENTER_KEYS), event->keyval) ==
      std::end(ENTER_KEYS))
    return FALSE;
  Q_string command(gtk_entry_get_text(GTK_ENTRY(entry)));
  if (command.empty()) return FALSE;
  gtk_entry_set_text(GTK_ENTRY(entry), "");
  gtk_combo_box_append_text(GTK_COMBO_BOX(gtk_widget_get_parent(entry)), command.c_str());
  Q_trim(command);
  Q_print("", 1, "# User command:\n");
  kvo3_exec_core(true, "%s", command.c_str());
  return FALSE;
}
