#pragma once

// Answers the dialogs that code under test opens, as a user would: by the labels of the fields and
// the names of the buttons, on a real display.
//
//   Dialog_driver user;
//   user.play("Name=mean; Jackknife=yes | Cancel");
//   kvo3_mean();
//   EXPECT_EQ(user.shown(),
//             "mean [ MEAN ANALYSIS ] Name: MyMean; Filter: (none) <(none), age>; Jackknife: no | "
//             "mean [ OVERWRITE? ]");

#include <gdk/gdkkeysyms.h>
#include <gtk/gtk.h>

#include <deque>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "display.h"
#include "util/handles.h"

/// A dialog on the screen, as a script sees it. What is not found is a failure of the test.
class Shown_dialog {
 public:
  explicit Shown_dialog(GtkWidget* dialog) : dialog_(dialog) {}

  [[nodiscard]] GtkWidget* widget() const { return dialog_; }
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

/// Runs one script for each dialog, in order, as soon as the dialog is shown, and gives it the
/// focus. A dialog without a script, a script that does not answer its dialog (both are then
/// closed) and a script without a dialog are failures of the test.
class Dialog_driver {
 public:
  using Script = std::function<void(Shown_dialog&)>;

  Dialog_driver();
  Dialog_driver(const Dialog_driver&) = delete;
  Dialog_driver& operator=(const Dialog_driver&) = delete;
  ~Dialog_driver();

  /// Adds the script of the next dialog.
  Dialog_driver& then(Script script);
  /// Adds a script that sets fields, given as label and value, and presses a button.
  Dialog_driver& answer(std::vector<std::pair<std::string, std::string>> fields,
                        std::string button = "OK");
  /// Adds the scripts of the dialogs that " | " parts. In a dialog "; " parts what is done: a field
  /// is set by "Label=value", a radio button clicked by "(option)", a file selected by "@path". A
  /// last word is the button to press, or "Enter", "Escape" or "Close"; without one it is the
  /// rightmost button.
  Dialog_driver& play(const std::string& dialogs);

  /// The message of each dialog seen so far.
  [[nodiscard]] const std::vector<std::string>& messages() const { return messages_; }
  /// The dialogs seen so far, parted by " | ", as they opened: of each the help topic, the message,
  /// and the fields with their values and, where there are not too many, their options.
  [[nodiscard]] const std::string& shown() const { return shown_; }
  /// How many scripts have not had their dialog yet.
  [[nodiscard]] std::size_t waiting() const { return scripts_.size(); }

 private:
  void look_for_dialog();
  void drive(GtkWidget* dialog);

  std::deque<Script> scripts_;
  std::vector<std::string> messages_;
  std::string shown_;
  Q_source source_;
};

/// Asks once for each way to refuse a dialog, when some of it has been answered as by play().
void every_refusal(const std::string& answers, const std::function<void()>& ask);
