#pragma once

// While a companion program works: the modal pop-up over the main window, and the block that keeps
// input from the window.

#include <gtk/gtk.h>

/// The pop-up and its label; both null while no work goes on.
extern GtkWidget* Qw_WorkingWindow;
extern GtkWidget* Qw_WorkingWindowLabel;
/// True while the pop-up exists.
extern bool Q_busy;

/// Keeps the user's input from the main window as long as it exists, even when no pop-up is shown:
/// before, between and after the runs that make up one piece of work. Blocks can be nested.
class Q_input_block {
 public:
  Q_input_block();
  Q_input_block(const Q_input_block&) = delete;
  Q_input_block& operator=(const Q_input_block&) = delete;
  ~Q_input_block();

  /// Whether there is one now; then no other work may begin.
  static bool exists() { return number_ > 0; }

 private:
  static int number_;
  GtkWidget* widget_;
};

/// Shows (`on` true) or hides the pop-up, titled "%s Working..." of the name. Hiding scrolls every
/// console pane to its end. The calls come in pairs around one run of a companion program. Closing
/// the pop-up by the window manager does nothing: it stays until the run has ended.
void Q_set_busy(const char* name, bool on);
