#include "dialogs/shown_text.h"

Q_g_memory<char> Q_shown_text(const char* text) {
  return Q_g_memory<char>(g_utf8_make_valid(text, -1));
}

void Q_wrap_label(GtkWidget* label) {
  gtk_label_set_line_wrap(GTK_LABEL(label), TRUE);
  gtk_label_set_line_wrap_mode(GTK_LABEL(label), PANGO_WRAP_WORD_CHAR);
}

void Q_wrap_message(GtkWidget* message_dialog) {
  GtkWidget* area = gtk_message_dialog_get_message_area(GTK_MESSAGE_DIALOG(message_dialog));
  gtk_container_foreach(
      GTK_CONTAINER(area), [](GtkWidget* label, gpointer) { Q_wrap_label(label); }, nullptr);
}
