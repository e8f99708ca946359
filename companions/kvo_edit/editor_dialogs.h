#pragma once

// What the editor asks and says in dialogs. All texts are plain.

#include <gtk/gtk.h>

#include <functional>
#include <optional>
#include <string>

namespace kvo::edit {

/// Says that something could not be done, and why.
void say_failure(GtkWidget* window, const std::string& what, const std::string& why);

/// One of the buttons of ask(): its label or stock id, and what it answers.
struct Answer {
  const char* label;
  int response;
};
/// Asks a question with the given answers, the last of which is what Enter means. The response of
/// the answer chosen; GTK_RESPONSE_CANCEL when the dialog is closed otherwise.
int ask(GtkWidget* window, const std::string& question, const std::string& explanation,
        std::initializer_list<Answer> answers);

/// Asks for a name, to begin with `name`. `fault` says why a name cannot be taken, in a sentence
/// that is shown under the entry; such a name cannot be confirmed. Nothing when cancelled.
std::optional<std::string> ask_name(
    GtkWidget* window, const std::string& title, const std::string& name,
    const std::function<std::optional<std::string>(const std::string&)>& fault);

/// The text on the clipboard; "" when there is none.
std::string clipboard_text();

/// A frame with scroll bars, where they are needed, around a view.
GtkWidget* new_scrolled(GtkWidget* view);

/// Says which keys do what, and what the marks mean.
void say_help(GtkWidget* window);

/// Says what the table can hold of how a study lists its peaks.
void say_listing_help(GtkWidget* window);

}  // namespace kvo::edit
