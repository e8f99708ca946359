#include "shell/busy.h"

#include "shell/console.h"
#include "shell/window.h"
#include "util/q_string.h"

GtkWidget* Qw_WorkingWindow = nullptr;
GtkWidget* Qw_WorkingWindowLabel = nullptr;
bool Q_busy = false;

namespace {

void show(const char* name) {
  Q_busy = true;
  const Q_string text = Q_format("%s Working...", name);
  Qw_WorkingWindow = gtk_window_new(GTK_WINDOW_TOPLEVEL);
  GtkWindow* window = GTK_WINDOW(Qw_WorkingWindow);
  gtk_window_set_default_size(window, 800, 50);
  gtk_window_set_modal(window, TRUE);
  gtk_window_set_position(window, GTK_WIN_POS_CENTER_ALWAYS);
  gtk_window_set_title(window, text.c_str());
  if (Qw_Window != nullptr) gtk_window_set_transient_for(window, GTK_WINDOW(Qw_Window));
  g_signal_connect(window, "delete-event", G_CALLBACK(gtk_true), nullptr);
  Qw_WorkingWindowLabel = gtk_label_new(text.c_str());
  // So that a long step does not make the pop-up wider than the screen.
  gtk_label_set_ellipsize(GTK_LABEL(Qw_WorkingWindowLabel), PANGO_ELLIPSIZE_END);
  gtk_container_add(GTK_CONTAINER(window), Qw_WorkingWindowLabel);
  g_signal_connect(window, "destroy", G_CALLBACK(gtk_widget_destroyed), &Qw_WorkingWindow);
  g_signal_connect(Qw_WorkingWindowLabel, "destroy", G_CALLBACK(gtk_widget_destroyed),
                   &Qw_WorkingWindowLabel);
  gtk_widget_show_all(Qw_WorkingWindow);
}

void hide() {
  if (Qw_WorkingWindow != nullptr) gtk_widget_destroy(Qw_WorkingWindow);
  Q_busy = false;
  for (std::size_t pane = 0; pane < Qw_v_OutputBuffer.size() && Qw_v_OutputBuffer[pane] != nullptr;
       ++pane)
    Q_scroll_to_end(static_cast<int>(pane));
}

}  // namespace

int Q_input_block::number_ = 0;

Q_input_block::Q_input_block() : widget_(gtk_invisible_new()) {
  // The pop-up and dialogs take their grab later, so input goes to them while they are shown.
  gtk_grab_add(widget_);
  ++number_;
}

Q_input_block::~Q_input_block() {
  --number_;
  gtk_grab_remove(widget_);
  gtk_widget_destroy(widget_);
}

void Q_set_busy(const char* name, bool on) {
  if (on)
    show(name);
  else
    hide();
}
