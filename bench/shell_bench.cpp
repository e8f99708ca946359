// Measures the road of an engine's line to the console: its delay, its cost while the engine is
// silent, and its growth with the number of lines. Prints "name value unit (goal ...)" lines. The
// argument, 100000 when it is missing, is the greatest number of lines.

#include <gtk/gtk.h>
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "panes.h"
#include "shell/command_runner.h"
#include "shell/console.h"

namespace {

using Clock = std::chrono::steady_clock;

void report(const char* name, double value, const char* unit, const char* goal) {
  std::printf("%-28s %10.3f %s%s\n", name, value, unit, goal);
  std::fflush(stdout);
}

double seconds_since(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

double processor_seconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

/// Highest resident memory in MB since the last call of reset_peak_memory().
double peak_memory() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);)
    if (line.starts_with("VmHWM:")) return std::atof(line.c_str() + 6) / 1024;
  return 0;
}

void reset_peak_memory() {
  std::ofstream("/proc/self/clear_refs") << "5";
}

/// The painted lines' delays in ms, and how many lines have been painted.
struct Painted {
  std::vector<double> delays;
  int line = 0;
};

/// Takes the time of the lines that are new on the pane after it has been painted.
gboolean after_expose(GtkWidget* view, GdkEventExpose* event, gpointer data) {
  if (event->window != gtk_text_view_get_window(GTK_TEXT_VIEW(view), GTK_TEXT_WINDOW_TEXT))
    return FALSE;
  // The display server has painted, not only been asked to.
  gdk_display_sync(gtk_widget_get_display(view));
  const auto now = std::chrono::nanoseconds(Clock::now().time_since_epoch()).count();
  auto& painted = *static_cast<Painted*>(data);
  GtkTextIter start;
  GtkTextIter end;
  GtkTextBuffer* buffer = gtk_text_view_get_buffer(GTK_TEXT_VIEW(view));
  gtk_text_buffer_get_iter_at_line(buffer, &start, painted.line);
  gtk_text_buffer_get_end_iter(buffer, &end);
  painted.line = gtk_text_iter_get_line(&end);
  const Q_g_memory<char> text(gtk_text_buffer_get_text(buffer, &start, &end, FALSE));
  for (const char* at = std::strstr(text.get(), " at "); at != nullptr;
       at = std::strstr(at + 1, " at "))
    painted.delays.push_back(static_cast<double>(now - std::atoll(at + 4)) * 1e-6);
  return FALSE;
}

double quantile(std::vector<double> values, double share) {
  if (values.empty()) return 0;
  std::sort(values.begin(), values.end());
  return values[static_cast<std::size_t>(share * static_cast<double>(values.size() - 1))];
}

void measure_delay(int lines) {
  const Test_panes panes;
  Painted painted;
  g_signal_connect_after(Qw_v_OutputView[0], "expose-event", G_CALLBACK(after_expose), &painted);
  kvo3_exec_core(false, "timed %d 7", lines);
  report("line_shown_lines", static_cast<double>(painted.delays.size()), "lines", "");
  report("line_shown_median", quantile(painted.delays, 0.5), "ms", " (goal < 10)");
  report("line_shown_p99", quantile(painted.delays, 0.99), "ms", "");
}

void measure_silence(int seconds) {
  const Test_panes panes;
  const double before = processor_seconds();
  const Clock::time_point start = Clock::now();
  kvo3_exec_core(false, "silent %d", seconds);
  report("silent_engine_processor", 100 * (processor_seconds() - before) / seconds_since(start),
         "% of a core", " (goal < 2)");
}

double seconds_of_lines(int lines) {
  const Test_panes panes;
  const Clock::time_point start = Clock::now();
  kvo3_exec_core(false, "lines %d", lines);
  const double seconds = seconds_since(start);
  if (gtk_text_buffer_get_line_count(Qw_v_OutputBuffer[0]) < lines) {
    std::fprintf(stderr, "lines are missing on the pane\n");
    std::exit(1);
  }
  return seconds;
}

/// Returns the seconds: of short runs the shortest, for what else the machine does takes its time.
double measure_lines(int lines) {
  reset_peak_memory();
  double seconds = seconds_of_lines(lines);
  for (int i = 0; i < 4 && lines < 100000; ++i)
    seconds = std::min(seconds, seconds_of_lines(lines));
  const std::string name = "lines_" + std::to_string(lines);
  report((name + "_time").c_str(), seconds, "s", "");
  report((name + "_peak_memory").c_str(), peak_memory(), "MB", "");
  return seconds;
}

}  // namespace

int main(int argc, char** argv) {
  const int most_lines = argc > 1 ? std::atoi(argv[1]) : 100000;
  const std::filesystem::path engine =
      std::filesystem::canonical("/proc/self/exe").parent_path() / "shell_bench_engine";
  gtk_disable_setlocale();
  gtk_init(&argc, &argv);
  const Test_folder folder;
  std::filesystem::copy(engine, make_program_folder(folder.path()) / "kvo_parse");

  measure_delay(1000);
  measure_silence(10);
  double per_line = 0;
  for (int lines = 1000; lines <= most_lines; lines *= 10) {
    const double seconds = measure_lines(lines);
    if (per_line > 0)
      report(("lines_" + std::to_string(lines) + "_growth").c_str(), seconds / lines / per_line,
             "x per line", " (goal <= 1.3)");
    per_line = seconds / lines;
  }
  return 0;
}
