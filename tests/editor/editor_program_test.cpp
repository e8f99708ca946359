// The program kvo_edit: its command line, its window in front of others, its end.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <gtk/gtk.h>
#include <sys/wait.h>

#include <csignal>
#include <cstdio>
#include <filesystem>

#include "display.h"
#include "test_folder.h"
#include "util/process.h"

// Last, as its macros are words that others use.
#include <gdk/gdkx.h>

namespace {

/// What the editor says, and its exit status behind that, with the arguments of a shell command.
std::string answer(const std::string& arguments) {
  const Q_pipe pipe = Q_openr_exec(true, "\"%s\" %s 2>&1; echo $?", KVO_EDIT, arguments.c_str());
  std::string output;
  for (int byte = std::fgetc(pipe.get()); byte != EOF; byte = std::fgetc(pipe.get()))
    output += static_cast<char>(byte);
  return output;
}

TEST(EditorProgram, AnswersOnTheCommandLine) {
  const Test_folder folder;
  const std::pair<const char*, const char*> cases[] = {{"--help", "Usage: kvo_edit FILE"},
                                                       {"--version", "kvo_edit (Quorvane) 4.31"},
                                                       {"", "kvo_edit: one file is needed"},
                                                       {"a b", "kvo_edit: one file is needed"},
                                                       {"--odd", "kvo_edit: one file is needed"}};
  for (const auto& [arguments, said] : cases) {
    EXPECT_THAT(answer(arguments), testing::StartsWith(said)) << arguments;
    EXPECT_THAT(answer(arguments),
                testing::EndsWith(*said == 'k' && said[8] == ':' ? "\n1\n" : "\n0\n"));
  }
  const std::string display = getenv("DISPLAY");
  unsetenv("DISPLAY");
  EXPECT_THAT(answer("kvo_table.txt"), testing::StartsWith("kvo_edit: no display can be opened"));
  setenv("DISPLAY", display.c_str(), 1);
}

/// An editor that has been started on a file of the current folder.
class Started {
 public:
  explicit Started(const char* file) : pid_(fork()) {
    if (pid_ != 0) return;
    execl(KVO_EDIT, "kvo_edit", file, static_cast<char*>(nullptr));
    _exit(127);
  }
  Started(const Started&) = delete;
  Started& operator=(const Started&) = delete;
  ~Started() {
    if (pid_ <= 0) return;
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  /// Waits for the end; the status of wait().
  int wait() {
    int status = -1;
    if (wait_until([&] { return waitpid(pid_, &status, WNOHANG) == pid_; })) pid_ = -1;
    return status;
  }

 private:
  pid_t pid_;
};

std::string title_of(Window window) {
  gdk_error_trap_push();
  char* name = nullptr;
  XFetchName(gdk_x11_get_default_xdisplay(), window, &name);
  const std::string title = name == nullptr ? "" : name;
  if (name != nullptr) XFree(name);
  gdk_error_trap_pop();
  return title;
}

/// Waits until a window of that title is the active one; 0 when none is.
Window wait_for_active(const std::string& title) {
  Window window = 0;
  const bool found = wait_until([&] {
    const std::vector<gulong> active = windows_of_property("_NET_ACTIVE_WINDOW");
    window = active.empty() ? 0 : active.front();
    return window != 0 && title_of(window) == title;
  });
  return found ? window : 0;
}

void close_window(Window window) {
  XEvent event{};
  event.xclient.type = ClientMessage;
  event.xclient.window = window;
  event.xclient.message_type = gdk_x11_get_xatom_by_name("WM_PROTOCOLS");
  event.xclient.format = 32;
  event.xclient.data.l[0] = static_cast<long>(gdk_x11_get_xatom_by_name("WM_DELETE_WINDOW"));
  event.xclient.data.l[1] = CurrentTime;
  Display* display = gdk_x11_get_default_xdisplay();
  XSendEvent(display, window, False, NoEventMask, &event);
  XFlush(display);
}

TEST(EditorProgram, ComesToTheFrontAndEndsWell) {
  const Test_folder folder;
  write_text("kvo_table.txt", "study,n1\na,1\n");
  start_window_manager();
  // The window of the program that starts the editor, which then does not serve its events.
  GtkWidget* starter = gtk_window_new(GTK_WINDOW_TOPLEVEL);
  gtk_window_set_title(GTK_WINDOW(starter), "starter");
  gtk_window_maximize(GTK_WINDOW(starter));
  gtk_widget_show(starter);
  ASSERT_NE(wait_for_active("starter"), 0U);
  Started editor("kvo_table.txt");
  const Window window = wait_for_active("kvo_table.txt - KVO table editor");
  ASSERT_NE(window, 0U);
  close_window(window);
  EXPECT_EQ(editor.wait(), 0);
  EXPECT_EQ(read_text("kvo_table.txt"), "study,n1\na,1\n");
  gtk_widget_destroy(starter);
}

TEST(EditorProgram, SaysWhyAFileCannotBeOpened) {
  const Test_folder folder;
  std::filesystem::create_directory("kvo_table.txt");
  start_window_manager();
  Started editor("kvo_table.txt");
  const Window dialog = wait_for_active("KVO table editor");
  ASSERT_NE(dialog, 0U);
  close_window(dialog);
  EXPECT_EQ(editor.wait(), W_EXITCODE(1, 0));
}

}  // namespace
