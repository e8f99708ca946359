// Measures the table editor: from its start to its window with 500 studies and 30 variables, and
// what a user waits for with 10,000 studies. Prints "name value unit (goal ...)" lines.
// Usage: editor_bench [EDITOR], with a display.

#include <gdk/gdkkeysyms.h>
#include <gtk/gtk.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "companions/kvo_edit/editor.h"
#include "companions/kvo_edit/operations.h"
#include "companions/kvo_edit/table_file.h"
#include "tests/support/test_folder.h"

// Last, as its macros are words that others use.
#include <gdk/gdkx.h>

using namespace kvo::edit;

namespace {

constexpr long VARIABLES = 30;
constexpr long SMALL = 500;
constexpr long LARGE = 10000;
constexpr const char* PATH = "kvo_table.txt";
constexpr unsigned PATIENCE = 300;  // seconds
constexpr int LEAST_WIDTH = 500;    // pixels, of a window that is the editor's

double seconds_of(const std::function<void()>& work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

std::string table_text(long studies) {
  std::string text = "study\tn1\tn2";
  for (long variable = 3; variable < VARIABLES; ++variable)
    text.append("\tvariable").append(std::to_string(variable));
  text += '\n';
  for (long study = 0; study < studies; ++study) {
    text.append("study").append(std::to_string(study * 7919 % studies));
    for (long variable = 1; variable < VARIABLES; ++variable)
      text.append("\t").append(std::to_string(1 + (study * 31 + variable * 17) % 997));
    text += '\n';
  }
  return text;
}

/// Waits until a large window is on the display.
void wait_for_map(Display* display) {
  for (;;) {
    XEvent event;
    XNextEvent(display, &event);
    XWindowAttributes attributes;
    if (event.type == MapNotify &&
        XGetWindowAttributes(display, event.xmap.window, &attributes) != 0 &&
        attributes.width >= LEAST_WIDTH)
      return;
  }
}

/// Seconds from the start of the program to its window.
double start_once(const char* editor) {
  Display* display = XOpenDisplay(nullptr);
  XSelectInput(display, DefaultRootWindow(display), SubstructureNotifyMask);
  XSync(display, True);
  pid_t pid = -1;
  const double time = seconds_of([&] {
    pid = fork();
    if (pid == 0) {
      execl(editor, "kvo_edit", PATH, static_cast<char*>(nullptr));
      _exit(127);
    }
    wait_for_map(display);
  });
  kill(pid, SIGKILL);
  waitpid(pid, nullptr, 0);
  XCloseDisplay(display);
  return time;
}

void settle() {
  gdk_window_process_all_updates();
  while (gtk_events_pending()) gtk_main_iteration();
  gdk_flush();
}

void press(const Editor& editor, guint key) {
  GdkEvent* event = gdk_event_new(GDK_KEY_PRESS);
  event->key.window = GDK_WINDOW(g_object_ref(gtk_widget_get_window(editor.window)));
  event->key.keyval = key;
  event->key.string = g_strdup("");
  gtk_main_do_event(event);
  gdk_event_free(event);
}

void report(const char* name, double seconds, const char* goal = "") {
  std::printf("editor_%s %.1f ms%s\n", name, seconds * 1000, goal);
}

void measure_start(const char* editor) {
  write_text(PATH, table_text(SMALL));
  std::vector<double> times;
  times.reserve(11);
  for (int i = 0; i < 11; ++i) times.push_back(start_once(editor));
  std::sort(times.begin(), times.end());
  report("start_500_median", times[times.size() / 2], " (goal 300)");
  report("start_500_slowest", times.back(), " (goal 300)");
}

void measure_large() {
  write_text(PATH, table_text(LARGE));
  std::unique_ptr<Editor> editor;
  report("open_10000", seconds_of([&] {
           editor = editor_open(open_document(PATH));
           settle();
         }));
  const auto timed = [&](const char* name, const std::function<void()>& work) {
    report(name, seconds_of([&] {
             work();
             settle();
           }));
  };
  const auto changed = [&] { editor_refresh(*editor); };
  Grid& grid = *editor->grid;
  timed("arrow_10000", [&] { press(*editor, GDK_KEY_Down); });
  timed("page_10000", [&] { press(*editor, GDK_KEY_Page_Down); });
  timed("type_letter_10000", [&] { press(*editor, GDK_KEY_x); });
  timed("type_second_letter_10000", [&] { press(*editor, GDK_KEY_y); });
  timed("store_cell_10000", [&] { press(*editor, GDK_KEY_Return); });
  timed("scroll_to_end_10000", [&] { grid_move_to(grid, LARGE - 1, VARIABLES - 1); });
  timed("sort_names_10000", [&] {
    sort_studies(editor->document, 0, false);
    changed();
  });
  timed("sort_numbers_10000", [&] {
    sort_studies(editor->document, 5, true);
    changed();
  });
  timed("undo_10000", [&] {
    undo(editor->document);
    changed();
  });
  const Block block = copy_cells(editor->document, {0, 0, LARGE - 1, VARIABLES - 1}, false);
  timed("paste_10000_more", [&] {
    paste_block(editor->document, {LARGE, 0, LARGE, 0}, block, false);
    changed();
  });
  timed("undo_paste_10000", [&] {
    undo(editor->document);
    changed();
  });
  timed("save_10000", [&] { save_document(editor->document); });
}

}  // namespace

int main(int argc, char** argv) {
  gtk_disable_setlocale();
  gtk_init(&argc, &argv);
  const std::string editor = std::filesystem::absolute(argc > 1 ? argv[1] : KVO_EDIT);
  const Test_folder folder;
  alarm(PATIENCE);  // an editor that does not start shows no window
  measure_start(editor.c_str());
  measure_large();
  return 0;
}
