#include "shell/window.h"

#include "util/q_string.h"

GtkWidget* Qw_Window = nullptr;

void Q_set_title(const char* format, ...) {
  Q_FORMAT_ARGUMENTS(title, format);
  if (Qw_Window != nullptr) gtk_window_set_title(GTK_WINDOW(Qw_Window), title.c_str());
}
