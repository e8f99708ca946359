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
  const std::string text(event.text);
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

/// Shows the events of a run. While the engine is ahead of the console, plain output lines are
/// printed together: each print adds a tag, and the toolkit searches all tags of a buffer whenever
/// one is added, so printing very many lines one by one would take quadratic time.
class Event_printer {
 public:
  /// `more`: another event is there already.
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

  /// Whether the text is valid markup, and stays valid next to any other text of this kind.
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

void (*on_command_end)(const std::string&) = nullptr;

/// Marks a field in which an Enter key is down.
constexpr const char* ENTER_IS_DOWN = "kvo-enter-is-down";

bool is_enter(const GdkEventKey* event) {
  return std::ranges::find(ENTER_KEYS, event->keyval) != std::end(ENTER_KEYS);
}

gboolean on_press(GtkWidget* entry, GdkEventKey* event, gpointer /*data*/) {
  if (is_enter(event)) g_object_set_data(G_OBJECT(entry), ENTER_IS_DOWN, GINT_TO_POINTER(1));
  return FALSE;
}

gboolean on_focus_out(GtkWidget* entry, GdkEventFocus* /*event*/, gpointer /*data*/) {
  g_object_set_data(G_OBJECT(entry), ENTER_IS_DOWN, nullptr);
  return FALSE;
}

/// Runs a command that is not a comment; false when the user has ended it.
bool run(const std::string& command) {
  Event_printer printer;
  bool cancelled = false;
  const std::optional<std::string> gone =
      Q_run_companion("kvo_parse", command, [&](const std::string& line, bool more) {
        const Engine_event event = Q_engine_event(line);
        cancelled |= event.kind == Engine_line::cancelled;
        printer.print(event, more);
        return event.closes();
      });
  if (gone)
    show({Engine_line::failed,
          "The engine ended before it finished (" + Q_markup_escape(*gone) + ")"});
  return !cancelled && !Q_console_gone();
}

}  // namespace

bool kvo3_exec_core(bool record, const char* format, ...) {
  Q_FORMAT_ARGUMENTS(command, format);
  Q_trim(command);
  if (command.empty()) return !Q_console_gone();
  const Q_run this_run;
  if (!this_run.allowed(command.c_str())) return false;
  const std::string markup = Q_markup_escape(command.str());
  if (command.str().front() == '#') {
    Q_print(Q_GREY, 0, "%s\n", markup.c_str());
    return !Q_console_gone();
  }
  Q_print(Q_BLUE, 0, "%s\n", markup.c_str());
  if (record) Q_print("", Q_BATCH_PANE, "%s\n\n", markup.c_str());
  const bool goes_on = !Q_console_gone() && run(command.str());
  if (on_command_end != nullptr && !Q_console_gone()) on_command_end(command.str());
  return goes_on;
}

void kvo3_connect_command_end(void (*handler)(const std::string& command)) {
  on_command_end = handler;
}

void kvo3_connect_entry(GtkWidget* entry) {
  g_signal_connect(entry, "key-press-event", G_CALLBACK(on_press), nullptr);
  g_signal_connect(entry, "focus-out-event", G_CALLBACK(on_focus_out), nullptr);
  g_signal_connect(entry, "key-release-event", G_CALLBACK(kvo3_core), nullptr);
}

gboolean kvo3_core(GtkWidget* entry, GdkEventKey* event, gpointer /*data*/) {
  if (!is_enter(event)) return FALSE;
  // An Enter that was pressed elsewhere, say in a dialog that it closed, is not meant for the
  // field.
  if (g_object_steal_data(G_OBJECT(entry), ENTER_IS_DOWN) == nullptr) return FALSE;
  if (Q_input_block::exists()) return FALSE;
  Q_string command(gtk_entry_get_text(GTK_ENTRY(entry)));
  if (command.empty()) return FALSE;
  const Q_input_block block;
  gtk_entry_set_text(GTK_ENTRY(entry), "");
  gtk_combo_box_append_text(GTK_COMBO_BOX(gtk_widget_get_parent(entry)), command.c_str());
  Q_trim(command);
  Q_print("", Q_BATCH_PANE, "# User command:\n");
  kvo3_exec_core(true, "%s", command.c_str());
  return FALSE;
}
