// main() of the test programs that show windows: a display of their own, so that tests neither need
// the user's display nor disturb it, and any number of them can run at the same time.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <gtk/gtk.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "server.h"
#include "util/handles.h"

// Last, since it defines macros with plain names.
#include <gdk/gdkx.h>

namespace {

/// Starts an X server and returns the display's name; empty when there is none.
std::string start_display() {
  int ends[2];
  if (pipe(ends) != 0) return "";
  const Q_fd reader(ends[0]);
  fcntl(reader.get(), F_SETFD, FD_CLOEXEC);
  Q_fd writer(ends[1]);
  const std::string number_fd = std::to_string(writer.get());
  // Without GLX, which takes half of the server's start; fonts come from the toolkit.
  const char* const arguments[] = {"Xvfb",     "-displayfd",  number_fd.c_str(), "-screen",
                                   "0",        "1024x768x24", "-nolisten",       "tcp",
                                   "-noreset", "-fp",         "built-ins",       "-extension",
                                   "GLX",      nullptr};
  start_server(arguments);
  writer.reset();
  std::string number;
  char digit = 0;
  while (read(reader.get(), &digit, 1) == 1 && digit != '\n') number += digit;
  return number.empty() ? "" : ":" + number;
}

/// Takes the server's own focus and pointer out of the game. The focus would otherwise follow the
/// pointer, which may happen to be over a window that a test shows.
void leave_focus_to_the_tests() {
  GdkDisplay* display = gdk_display_get_default();
  GdkScreen* screen = gdk_display_get_default_screen(display);
  gdk_display_warp_pointer(display, screen, gdk_screen_get_width(screen) - 1,
                           gdk_screen_get_height(screen) - 1);
  XSetInputFocus(GDK_DISPLAY_XDISPLAY(display), None, RevertToNone, CurrentTime);
  gdk_display_sync(display);
}

/// A home of the test program's own for a while: the toolkit writes recently used files into it.
class Home {
 public:
  Home() {
    std::string pattern = (std::filesystem::temp_directory_path() / "kvo_home_XXXXXX").string();
    path_ = mkdtemp(pattern.data());
    std::filesystem::create_directories(path_ / ".local/share");
    setenv("HOME", path_.c_str(), 1);
    for (const char* variable : {"XDG_DATA_HOME", "XDG_CONFIG_HOME", "XDG_CACHE_HOME"})
      unsetenv(variable);
  }
  Home(const Home&) = delete;
  Home& operator=(const Home&) = delete;
  ~Home() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }

 private:
  std::filesystem::path path_;
};

}  // namespace

pid_t start_server(const char* const arguments[]) {
  const pid_t parent = getpid();
  const pid_t child = fork();
  if (child != 0) return child;
  // Not SIGKILL, which would leave the server's files behind.
  prctl(PR_SET_PDEATHSIG, SIGTERM);
  if (getppid() != parent) _exit(0);
  const int null = open("/dev/null", O_RDWR);
  for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) dup2(null, standard);
  execvp(arguments[0], const_cast<char* const*>(arguments));
  _exit(127);
}

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  if (GTEST_FLAG_GET(list_tests)) return RUN_ALL_TESTS();
  const Home home;
  const std::string display = start_display();
  if (display.empty()) {
    std::fprintf(stderr, "Xvfb could not be started\n");
    return 1;
  }
  setenv("DISPLAY", display.c_str(), 1);
  // Nothing of the user's session takes part.
  for (const char* variable : {"GTK_MODULES", "GTK2_RC_FILES", "SESSION_MANAGER", "XMODIFIERS"})
    unsetenv(variable);
  gtk_disable_setlocale();
  gtk_init(&argc, &argv);
  leave_focus_to_the_tests();
  return RUN_ALL_TESTS();
}
