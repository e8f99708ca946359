#pragma once

// A dialog on the screen, as a script sees it: by the labels of its fields and the names of its
// buttons. What is not found is a failure of the test.

#include <gdk/gdkkeysyms.h>
#include <gtk/gtk.h>

#include <string>
#include <vector>

#include "display.h"

class Shown_dialog {
 public:
  /// Of another window only the keys are of use.
  explicit Shown_dialog(GtkWidget* dialog);

  [[nodiscard]] GtkWidget* widget() const { return dialog_; }
  /// Whether it has been answered since this object was made.
  [[nodiscard]] bool answered() const;
  /// The title line or the message; of other dialogs the window's title.
  [[nodiscard]] std::string message() const;
  /// The text under the title line; empty when there is none.
  [[nodiscard]] std::string explanation() const;
  /// Names of the buttons from left to right, without mnemonics.
  [[nodiscard]] std::vector<std::string> buttons() const;

  /// Labels of the fields from top to bottom.
  [[nodiscard]] std::vector<std::string> labels() const;
  /// The field that a label names; null, and a failure, when there is none.
  [[nodiscard]] GtkWidget* field(const std::string& label) const;
  /// What a field holds: its text or chosen option, "yes" or "no", the path of a file, "x y z".
  [[nodiscard]] std::string value(const std::string& label) const;
  /// Texts of a drop-down list, or of the radio buttons when the label is empty.
  [[nodiscard]] std::vector<std::string> options(const std::string& label = "") const;
  /// Goes to a field and enters a value, written as value() gives it. What is typed into a number
  /// field is settled when the field is left, as it is for a user.
  void set(const std::string& label, const std::string& value);
  /// Clicks the radio button with the text.
  void choose(const std::string& option);
  /// The text of the active radio button.
  [[nodiscard]] std::string chosen() const;
  /// Selects a file or folder of a file chooser dialog and waits until it is selected.
  void select(const std::string& path);

  /// Clicks a button by its name: "OK", "Cancel", "Open", "Help".
  void press(const std::string& button);
  /// Presses and releases a key where the keyboard focus is.
  void key(guint key, GdkModifierType state = GdkModifierType(0));
  void type(const std::string& text);
  /// Clicks the window's close button.
  void close();
  /// The label of the field with the keyboard focus, or the name of the button with it.
  [[nodiscard]] std::string focus() const;

 private:
  GtkWidget* dialog_;
};

/// Wait until a file chooser, which loads folders meanwhile, has a file or folder selected, or is
/// in a folder; whether it does.
bool has_selected(GtkWidget* chooser, const std::string& path);
bool is_in_folder(GtkWidget* chooser, const std::string& folder);

/// All widgets inside a container, also those that its kind keeps for itself, in their order.
std::vector<GtkWidget*> widgets_inside(GtkWidget* container);
