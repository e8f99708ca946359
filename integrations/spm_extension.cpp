#include "integrations/spm_extension.h"

#include <array>
#include <string>

#include "dialogs/canned.h"
#include "dialogs/help.h"
#include "dialogs/input.h"
#include "dialogs/message.h"
#include "integrations/spm_toolbox.h"
#include "shell/busy.h"
#include "shell/console.h"
#include "util/files.h"
#include "workspace/settings.h"

namespace {

constexpr const char* EXPLANATION =
    "RUNNING KVO AS SPM EXTENSION\n"
    "This action will create the necessary files to run KVO as an SPM extension.\n\n"
    "Please notice that the new SPM extension will work independently from the KVO software you "
    "are running now. Indeed, you can delete this software if you plan to run KVO only as an SPM "
    "extension.\n\n"
    "To proceed click [OK] and next specify the SPM toolbox folder within the SPM folder.";

constexpr const char* LAST_STEP =
    "READ VERY CAREFULLY !!!\n"
    "To finish the installation open Matlab and copy and paste the following command into Matlab's "
    "console.";

/// Added to the last step when neither that command nor the function file can work.
constexpr const char* NOT_A_PLAIN_PATH =
    "\n\nPLEASE NOTE: the path of the folder you have specified has blanks or other characters "
    "that Matlab and the system shell do not take for a part of a path. KVO cannot be started from "
    "Matlab there. Please repeat this action with a folder whose path has only letters, digits and "
    "the characters . _ - +";

void copy_with_the_window_alive(const Q_string& folder) {
  Q_set_busy("KVO", true);
  Q_process_events();
  kvo_copy_toolbox(folder.c_str(), Q_process_events);
  Q_set_busy("KVO", false);
  Q_chdir_or_die("%s", kvo_s_user_dir.c_str());
}

void show_last_step(const Q_string& folder) {
  std::string message = LAST_STEP;
  if (!kvo_is_plain_path(folder.str())) message += NOT_A_PLAIN_PATH;
  std::array<Q_input_item, 1> items;
  Q_input_item_str(items, 0, "Matlab command", Q_format("addpath %s/KVO", folder.c_str()).c_str());
  Q_input(message.c_str(), 1, items);
}

}  // namespace

void kvo3_spm_extension() {
  Qs_HelpTopic = "spm";
  if (!Q_input_boolean(EXPLANATION, false)) return;
  Q_string folder;
  if (!Q_input_folder(folder, "Specify the SPM toolbox folder")) return;
  if (folder.empty()) {
    Q_input_warning("The folder has no path on this computer. Nothing has been created.");
    return;
  }
  copy_with_the_window_alive(folder);
  kvo_write_matlab_file(folder.c_str());
  show_last_step(folder);
}
