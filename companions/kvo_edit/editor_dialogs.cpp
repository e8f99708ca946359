#include "companions/kvo_edit/editor_dialogs.h"

#include "companions/kvo_edit/column_help.h"
#include "util/handles.h"

namespace kvo::edit {

namespace {

GtkWidget* new_message(GtkWidget* window, GtkMessageType type, const std::string& text,
                       const std::string& explanation) {
  GtkWidget* dialog = gtk_message_dialog_new(GTK_WINDOW(window), GTK_DIALOG_MODAL, type,
                                             GTK_BUTTONS_NONE, "%s", text.c_str());
  gtk_message_dialog_format_secondary_text(GTK_MESSAGE_DIALOG(dialog), "%s", explanation.c_str());
  gtk_window_set_title(GTK_WINDOW(dialog), "KVO table editor");
  return dialog;
}

int run_and_destroy(GtkWidget* dialog) {
  const int response = gtk_dialog_run(GTK_DIALOG(dialog));
  gtk_widget_destroy(dialog);
  return response < 0 && response != GTK_RESPONSE_ACCEPT && response != GTK_RESPONSE_REJECT &&
                 response != GTK_RESPONSE_OK
             ? GTK_RESPONSE_CANCEL
             : response;
}

/// What the name dialog looks at while a name is typed.
struct Name_dialog {
  GtkWidget* dialog;
  GtkWidget* entry;
  GtkWidget* message;
  const std::function<std::optional<std::string>(const std::string&)>& fault;
};

void say(GtkWidget* window, const char* title, const std::string& text) {
  GtkWidget* dialog = new_message(window, GTK_MESSAGE_INFO, title, text);
  gtk_dialog_add_button(GTK_DIALOG(dialog), GTK_STOCK_CLOSE, GTK_RESPONSE_OK);
  run_and_destroy(dialog);
}

void judge_name(GtkEditable* /*entry*/, gpointer data) {
  const auto& parts = *static_cast<Name_dialog*>(data);
  const auto fault = parts.fault(gtk_entry_get_text(GTK_ENTRY(parts.entry)));
  gtk_label_set_text(GTK_LABEL(parts.message), fault.value_or("").c_str());
  gtk_dialog_set_response_sensitive(GTK_DIALOG(parts.dialog), GTK_RESPONSE_OK, !fault);
}

}  // namespace

void say_failure(GtkWidget* window, const std::string& what, const std::string& why) {
  GtkWidget* dialog = new_message(window, GTK_MESSAGE_ERROR, what, why);
  gtk_dialog_add_button(GTK_DIALOG(dialog), GTK_STOCK_OK, GTK_RESPONSE_OK);
  run_and_destroy(dialog);
}

int ask(GtkWidget* window, const std::string& question, const std::string& explanation,
        std::initializer_list<Answer> answers) {
  GtkWidget* dialog = new_message(window, GTK_MESSAGE_QUESTION, question, explanation);
  for (const Answer& answer : answers) {
    gtk_dialog_add_button(GTK_DIALOG(dialog), answer.label, answer.response);
    gtk_dialog_set_default_response(GTK_DIALOG(dialog), answer.response);
  }
  return run_and_destroy(dialog);
}

std::optional<std::string> ask_name(
    GtkWidget* window, const std::string& title, const std::string& name,
    const std::function<std::optional<std::string>(const std::string&)>& fault) {
  GtkWidget* dialog = gtk_dialog_new_with_buttons(
      title.c_str(), GTK_WINDOW(window), GTK_DIALOG_MODAL, GTK_STOCK_CANCEL, GTK_RESPONSE_CANCEL,
      GTK_STOCK_OK, GTK_RESPONSE_OK, nullptr);
  gtk_dialog_set_default_response(GTK_DIALOG(dialog), GTK_RESPONSE_OK);
  gtk_window_set_resizable(GTK_WINDOW(dialog), FALSE);
  GtkWidget* label = gtk_label_new_with_mnemonic("_Name of the variable:");
  GtkWidget* entry = gtk_entry_new();
  GtkWidget* message = gtk_label_new("");
  gtk_label_set_mnemonic_widget(GTK_LABEL(label), entry);
  gtk_misc_set_alignment(GTK_MISC(label), 0, 0.5);
  gtk_misc_set_alignment(GTK_MISC(message), 0, 0);
  gtk_label_set_line_wrap(GTK_LABEL(message), TRUE);
  gtk_widget_set_size_request(message, 340, 40);
  gtk_entry_set_activates_default(GTK_ENTRY(entry), TRUE);
  gtk_entry_set_text(GTK_ENTRY(entry), name.c_str());
  GtkWidget* box = gtk_vbox_new(FALSE, 6);
  gtk_container_set_border_width(GTK_CONTAINER(box), 10);
  for (GtkWidget* part : {label, entry, message})
    gtk_box_pack_start(GTK_BOX(box), part, FALSE, FALSE, 0);
  gtk_container_add(GTK_CONTAINER(gtk_dialog_get_content_area(GTK_DIALOG(dialog))), box);
  gtk_widget_show_all(box);

  Name_dialog parts{dialog, entry, message, fault};
  g_signal_connect(entry, "changed", G_CALLBACK(judge_name), &parts);
  judge_name(nullptr, &parts);
  std::optional<std::string> answer;
  if (gtk_dialog_run(GTK_DIALOG(dialog)) == GTK_RESPONSE_OK)
    answer = gtk_entry_get_text(GTK_ENTRY(entry));
  gtk_widget_destroy(dialog);
  return answer;
}

std::string clipboard_text() {
  const Q_g_memory<char> text(
      gtk_clipboard_wait_for_text(gtk_clipboard_get(GDK_SELECTION_CLIPBOARD)));
  return text == nullptr ? "" : text.get();
}

GtkWidget* new_scrolled(GtkWidget* view) {
  GtkWidget* scrolled = gtk_scrolled_window_new(nullptr, nullptr);
  gtk_scrolled_window_set_policy(GTK_SCROLLED_WINDOW(scrolled), GTK_POLICY_AUTOMATIC,
                                 GTK_POLICY_AUTOMATIC);
  gtk_scrolled_window_set_shadow_type(GTK_SCROLLED_WINDOW(scrolled), GTK_SHADOW_IN);
  gtk_container_add(GTK_CONTAINER(scrolled), view);
  return scrolled;
}

void say_help(GtkWidget* window) {
  say(window, "Keys and marks",
      "Type to replace a cell, F2 or double-click to change it. Enter goes down and Tab to the "
      "right, "
      "with Shift back; Tab behind the last cell adds a study. Escape gives up what has been "
      "typed.\n\n"
      "Shift with the arrows, or the pointer, selects a block; a click on the number of a study or "
      "the name of a variable selects it whole. A double click on a name changes it, and a name "
      "can be "
      "dragged to another place.\n\n"
      "Blocks are copied from and to any spreadsheet. Pasting adds the studies and variables that "
      "are needed.\n\n"
      "Red marks: a name that is missing, doubled or not usable, a sample size or "
      "threshold that cannot be one, two thresholds, a blank, tab or comma inside a cell. Orange "
      "marks: a study without peaks file and image. "
      "Point at a "
      "mark, or go to the cell, to read what it means.\n\n"
      "NA, in grey, is a missing value.\n\n"
      "The peaks of the study at the cursor stand beside the table. The same keys work there; "
      "Ctrl+V pastes the table of a paper after a preview. Saving saves both.");
}

void say_listing_help(GtkWidget* window) {
  say(window, "How studies list their peaks", listing_help());
}

}  // namespace kvo::edit
