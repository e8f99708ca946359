#include "shell/command_runner.h"

#include <gdk/gdkkeysyms.h>
#include <sched.h>

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>

#include "shell/companion_run.h"
#include "shell/console.h"
#include "shell/engine_output.h"
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

/// Shows the events of a run. Plain output lines share a print while the engine is ahead of the
/// console: each print costs a tag, and the toolkit searches all tags of a buffer for each new one,
/// so that a print for each of very many lines takes time that grows with their square.
class Event_printer {
 public:
  /// `more` tells that another event follows at once.
  void print(const Engine_event& event, bool more) {
    const bool joins = can_share_print(event);
    if (joins) {
      block_.append(event.text).append("\n");
      if (++lines_ < MOST_LINES && more) return;
    }
    print_block();
    if (!joins) show(event);
  }

 private:
  static constexpr int MOST_LINES = 50;  // about what a pane shows at a time

  /// Whether the text is valid, and stays so with any other such text before and behind it.
  static bool can_share_print(const Engine_event& event) {
    if (event.kind != Engine_line::output) return false;
    constexpr std::string_view ACTS_BEYOND_ITSELF("<\0", 2);
    if (event.text.find_first_of(ACTS_BEYOND_ITSELF) != std::string_view::npos) return false;
    const auto length = static_cast<int>(event.text.size());
    return pango_parse_markup(event.text.data(), length, 0, nullptr, nullptr, nullptr, nullptr) !=
           FALSE;
  }
  void print_block() {
    if (lines_ > 0) Q_print(Q_ENGINE, 0, "%s", block_.c_str());
    block_.clear();
    lines_ = 0;
  }

  std::string block_;
  int lines_ = 0;
};

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
  Event_printer printer;
  const std::optional<std::string> gone =
      Q_run_companion("kvo_parse", command.str(), [&](const std::string& line, bool more) {
        const Engine_event event = Q_engine_event(line);
        printer.print(event, more);
        return event.closes();
      });
  if (gone)
    show({Engine_line::failed,
          "The engine ended before it finished (" + Q_markup_escape(*gone) + ")"});
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
