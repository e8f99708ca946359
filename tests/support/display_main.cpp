// main() of the test programs that show windows: a display and a window manager of their own, so
// that tests neither need the user's display nor disturb it, and focus works as on a desktop.

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

#include "util/handles.h"

namespace {

/// A server that ends with this process.
pid_t start_server(const char* const arguments[]) {
  const pid_t child = fork();
  if (child != 0) return child;
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  const int null = open("/dev/null", O_RDWR);
  dup2(null, STDERR_FILENO);
  dup2(null, STDOUT_FILENO);
  execvp(arguments[0], const_cast<char* const*>(arguments));
  _exit(127);
}

/// Starts an X server and returns the display's name; empty when there is none.
std::string start_display(pid_t& server) {
  int ends[2];
  if (pipe(ends) != 0) return "";
  const Q_fd reader(ends[0]);
  Q_fd writer(ends[1]);
  const std::string number_fd = std::to_string(writer.get());
  const char* const arguments[] = {"Xvfb",     "-displayfd",  number_fd.c_str(), "-screen",
                                   "0",        "1024x768x24", "-nolisten",       "tcp",
                                   "-noreset", nullptr};
  server = start_server(arguments);
  writer.reset();
  std::string number;
  char digit = 0;
  while (read(reader.get(), &digit, 1) == 1 && digit != '\n') number += digit;
  return number.empty() ? "" : ":" + number;
}

/// Waits until a window manager has begun to manage windows, 5 s at most. It announces itself
/// earlier, but a window shown between the two does not get the focus.
bool wait_for_window_manager() {
  for (int i = 0; i < 500; ++i) {
    GdkAtom type{};
    int format = 0;
    int length = 0;
    guchar* raw = nullptr;
    if (gdk_property_get(gdk_get_default_root_window(), gdk_atom_intern("_NET_CLIENT_LIST", FALSE),
                         GDK_NONE, 0, 4, FALSE, &type, &format, &length, &raw)) {
      const Q_g_memory<guchar> value(raw);
      return true;
    }
    g_usleep(10000);
  }
  return false;
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

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  if (GTEST_FLAG_GET(list_tests)) return RUN_ALL_TESTS();
  const Home home;
  pid_t server = -1;
  const std::string display = start_display(server);
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
  const char* const manager[] = {"openbox", "--sm-disable", nullptr};
  start_server(manager);
  if (!wait_for_window_manager()) {
    std::fprintf(stderr, "openbox could not be started\n");
    return 1;
  }
  return RUN_ALL_TESTS();
}
