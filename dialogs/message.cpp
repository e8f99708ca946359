#include "dialogs/message.h"

#include <gtk/gtk.h>

#include "util/q_string.h"

void Q_input_warning(const char* format, ...) {
  Q_FORMAT_ARGUMENTS(text, format);
  GtkWidget* dialog =
      gtk_message_dialog_new(nullptr, GTK_DIALOG_DESTROY_WITH_PARENT, GTK_MESSAGE_QUESTION,
                             GTK_BUTTONS_OK, "%s", text.c_str());
  gtk_dialog_run(GTK_DIALOG(dialog));
  gtk_widget_destroy(dialog);
}
