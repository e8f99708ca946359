#pragma once

// The frame that all dialogs share: title line, explanation, Help, Cancel and OK.

#include <gtk/gtk.h>

#include <string>
#include <string_view>

/// A dialog's message in its two parts.
struct Q_message_parts {
  std::string title;        ///< the first line that is not empty
  std::string explanation;  ///< all that follows that line, unchanged
};
Q_message_parts Q_split_message(std::string_view message);

/// A modal dialog, not yet shown, with the buttons Cancel and OK and on request Help, which opens
/// the current help topic. The message's first non-empty line is the title, shown as "[ %s ]"; the
/// rest is the explanation, a wrapped label under it. Both are plain text. The caller adds its
/// fields to the content area, runs the dialog and destroys it. There is no default button.
GtkWidget* Q_input_new_dialog(const char* message, bool with_help);

/// A button, not shown, labelled with a blank and the label, with the stock image and the tooltip
/// (which may be empty), that calls the handler when clicked.
GtkWidget* Q_input_new_button(const char* label, void (*handler)(), const char* stock_id,
                              const char* tooltip);

/// Puts the Help button, shown, first into the dialog's button row.
void Q_add_help_button(GtkWidget* dialog);

/// Owner of a dialog: destroys it at the end of the scope, also when it has been destroyed
/// meanwhile (with the whole program's windows, say).
class Q_dialog {
 public:
  explicit Q_dialog(GtkWidget* dialog);
  Q_dialog(const Q_dialog&) = delete;
  Q_dialog& operator=(const Q_dialog&) = delete;
  ~Q_dialog();

  [[nodiscard]] GtkWidget* get() const { return dialog_; }
  /// Adds a widget to the content area, under the explanation, and shows it.
  void add(GtkWidget* widget);
  /// Runs the dialog modally; true when the answer is OK. Cancel, Escape and the window's close
  /// button count as refusal. After OK the focus is taken from the field that had it, so that what
  /// was typed there takes effect; a file chooser keeps the focus, since its choice depends on it.
  [[nodiscard]] bool run();

 private:
  GtkWidget* dialog_;
};
