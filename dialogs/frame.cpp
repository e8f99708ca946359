#include "dialogs/frame.h"

#include "dialogs/help.h"
#include "dialogs/shown_text.h"
#include "util/q_string.h"

namespace {

constexpr int HELP_BUTTON_PADDING = 10;
/// Space on both sides of the explanation, which lines it up with the title.
constexpr int EXPLANATION_PADDING = 17;

}  // namespace

Q_message_parts Q_split_message(std::string_view message) {
  const std::size_t start = message.find_first_not_of('\n');
  if (start == std::string_view::npos) return {};
  const std::size_t end = message.find('\n', start);
  if (end == std::string_view::npos) return {std::string(message.substr(start)), ""};
  return {std::string(message.substr(start, end - start)), std::string(message.substr(end + 1))};
}

GtkWidget* Q_input_new_dialog(const char* message, bool with_help) {
  const Q_message_parts parts = Q_split_message(Q_string(message).str());
  const auto title = Q_shown_text(parts.title.c_str());
  GtkWidget* dialog =
      gtk_message_dialog_new(nullptr, GTK_DIALOG_DESTROY_WITH_PARENT, GTK_MESSAGE_OTHER,
                             GTK_BUTTONS_OK_CANCEL, "[ %s ]", title.get());
  Q_wrap_message(dialog);
  if (!parts.explanation.empty()) {
    GtkWidget* label = gtk_label_new(Q_shown_text(parts.explanation.c_str()).get());
    Q_wrap_label(label);
    gtk_misc_set_alignment(GTK_MISC(label), 0, 0.5);
    gtk_misc_set_padding(GTK_MISC(label), EXPLANATION_PADDING, 0);
    gtk_container_add(GTK_CONTAINER(gtk_dialog_get_content_area(GTK_DIALOG(dialog))), label);
    gtk_widget_show(label);
  }
  if (with_help) Q_add_help_button(dialog);
  return dialog;
}

GtkWidget* Q_input_new_button(const char* label, void (*handler)(), const char* stock_id,
                              const char* tooltip) {
  GtkWidget* button = gtk_button_new_with_label(Q_format(" %s", label).c_str());
  g_signal_connect(button, "clicked", G_CALLBACK(handler), nullptr);
  gtk_button_set_alignment(GTK_BUTTON(button), 0, 0.5);
  gtk_widget_set_tooltip_text(button, tooltip);
  gtk_button_set_image(GTK_BUTTON(button),
                       gtk_image_new_from_stock(stock_id, GTK_ICON_SIZE_BUTTON));
  return button;
}

void Q_add_help_button(GtkWidget* dialog) {
  GtkWidget* button =
      Q_input_new_button("Help", Q_show_help, GTK_STOCK_HELP, "Get help on this subject");
  GtkWidget* row = gtk_dialog_get_action_area(GTK_DIALOG(dialog));
  gtk_box_pack_start(GTK_BOX(row), button, FALSE, FALSE, HELP_BUTTON_PADDING);
  gtk_box_reorder_child(GTK_BOX(row), button, 0);
  gtk_widget_show(button);
}

Q_dialog::Q_dialog(GtkWidget* dialog) : dialog_(dialog) {
  g_object_ref(dialog_);
}

Q_dialog::~Q_dialog() {
  gtk_widget_destroy(dialog_);
  g_object_unref(dialog_);
}

void Q_dialog::add(GtkWidget* widget) {
  gtk_container_add(GTK_CONTAINER(gtk_dialog_get_content_area(GTK_DIALOG(dialog_))), widget);
  gtk_widget_show_all(widget);
}

bool Q_dialog::run() {
  if (gtk_dialog_run(GTK_DIALOG(dialog_)) != GTK_RESPONSE_OK) return false;
  // Answering from the keyboard (Alt and a letter) leaves the focus in the field. A file chooser
  // has made its choice by now, and goes by the focus to tell a path that was typed from a file
  // that was clicked.
  if (!GTK_IS_FILE_CHOOSER(dialog_)) gtk_window_set_focus(GTK_WINDOW(dialog_), nullptr);
  return true;
}
