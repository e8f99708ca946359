#include "dialogs/canned.h"

#include <cassert>
#include <vector>

#include "dialogs/frame.h"
#include "dialogs/input.h"
#include "dialogs/widgets.h"

namespace {

constexpr guint GROUP_BORDER = 10;

}  // namespace

int Q_input_opt(const char* message, int position, const Q_string_list& options) {
  const int n = static_cast<int>(options.size());
  assert(n >= 1 && position >= 1 && position <= n);
  if (position < 1 || position > n) position = 1;
  std::vector<const char*> labels;
  for (const std::string& option : options) labels.push_back(option.c_str());
  std::vector<GtkWidget*> buttons(options.size());

  Q_dialog dialog(Q_input_new_dialog(message, true));
  GtkWidget* group = Q_input_new_radiogroup(buttons.data(), position, n, labels.data());
  gtk_container_set_border_width(GTK_CONTAINER(group), GROUP_BORDER);
  dialog.add(group);
  if (!dialog.run()) return 0;
  for (int i = 0; i < n; ++i)
    if (gtk_toggle_button_get_active(GTK_TOGGLE_BUTTON(buttons[static_cast<std::size_t>(i)])))
      position = i + 1;
  return position;
}

bool Q_input_boolean(const char* message, bool default_answer) {
  Q_dialog dialog(Q_input_new_dialog(message, true));
  gtk_dialog_set_default_response(GTK_DIALOG(dialog.get()),
                                  default_answer ? GTK_RESPONSE_OK : GTK_RESPONSE_CANCEL);
  return dialog.run();
}

bool Q_input_folder(Q_string& folder, const char* title) {
  Q_dialog dialog(gtk_file_chooser_dialog_new(title, nullptr, GTK_FILE_CHOOSER_ACTION_SELECT_FOLDER,
                                              GTK_STOCK_CANCEL, GTK_RESPONSE_CANCEL, GTK_STOCK_OPEN,
                                              GTK_RESPONSE_OK, nullptr));
  GtkFileChooser* chooser = GTK_FILE_CHOOSER(dialog.get());
  if (!folder.empty()) gtk_file_chooser_set_filename(chooser, folder.c_str());
  Q_add_help_button(dialog.get());
  folder.clear();
  if (!dialog.run()) return false;
  Q_input_get_file(dialog.get(), folder);
  return true;
}
