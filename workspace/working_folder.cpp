#include "workspace/working_folder.h"
#include "workspace/files/file_names.h"

#include <unistd.h>

#include "dialogs/canned.h"
#include "dialogs/help.h"
#include "dialogs/message.h"
#include "kvo_config.h"
#include "shell/batch.h"
#include "shell/console.h"
#include "shell/run_output.h"
#include "shell/window.h"
#include "util/files.h"
#include "util/handles.h"
#include "util/text.h"
#include "util/whole_file.h"
#include "workspace/files/study_table.h"
#include "workspace/load_table.h"
#include "workspace/settings.h"

namespace {

void warn_of_table(const std::string& fault) {
  const std::string file = kvo_s_user_dir.str() + "/" + KVO_TABLE_FILE;
  Q_print_warning(0,
                  "The study table of the last folder you used cannot be loaded: '%s' %s. Please "
                  "mend that file and start again, or change the folder.\n",
                  Q_markup_escape(file).c_str(), Q_markup_escape(fault).c_str());
}

}  // namespace

std::string kvo_folder_refusal(const std::string& folder) {
  const std::string settings = kvo_settings_path().str();
  if (!Q_can_write_whole(settings.c_str()))
    return Q_format(
               "The settings file '%s' cannot be written, so the folder has not been changed. "
               "Please make the file writable and try again.",
               settings.c_str())
        .str();
  const std::string table = folder + "/" + KVO_TABLE_FILE;
  if (const std::string fault = kvotable_fault(table.c_str()); !fault.empty())
    return Q_format(
               "The study table '%s' %s, so the folder has not been changed. Please mend the file "
               "and try again.",
               table.c_str(), fault.c_str())
        .str();
  return "";
}

void kvo_enter_folder(const char* folder) {
  Q_chdir_or_die("%s", folder);
  Q_getdir(kvo_s_user_dir);
  kvo_save_kvo_ini();
}

void kvo_show_title() {
  // A folder's name need not be UTF-8, but a title must be.
  const Q_g_memory<char> folder(g_filename_display_name(kvo_s_user_dir.c_str()));
  Q_set_title("KVO v%.2f - %s", KVO_VERSION, folder.get());
}

void kvo_show_folder() {
  Q_remove_dead_outputs();
  kvotable_load(KVO_TABLE_FILE);
  kvo_show_title();
  kvo3_batch_print();
}

void kvo3_cd() {
  Qs_HelpTopic = "folder";
  Q_string folder = kvo_s_user_dir;
  if (!Q_input_folder(folder, "Select the folder containing the meta-analysis")) return;
  if (folder.empty()) return;
  if (const std::string refusal = kvo_folder_refusal(folder.str()); !refusal.empty()) {
    Q_input_warning("%s", refusal.c_str());
    return;
  }
  kvo_enter_folder(folder.c_str());
  kvo_show_folder();
}

void kvo3_check_user_dir() {
  if (chdir(kvo_s_user_dir.c_str()) == 0) {
    const std::string fault = kvotable_fault(KVO_TABLE_FILE);
    if (fault.empty()) return;
    warn_of_table(fault);
  } else {
    Q_print_warning(0,
                    "Working folder not found. This may be because it is the first time you use "
                    "the program, or because the last folder you used has been changed. Please "
                    "change the folder as soon as possible.\n");
  }
  Q_chdir("%s", kvo_s_dir.c_str());
  kvo_s_user_dir = kvo_s_dir;
}
