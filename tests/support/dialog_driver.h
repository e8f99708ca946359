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

#include <deque>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "shown_dialog.h"
#include "util/handles.h"

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
