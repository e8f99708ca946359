// Start-up: finds the installation, prepares the toolkit, opens the window on the working folder
// and hands control to the toolkit's main loop.

#include <gtk/gtk.h>

#include <new>

#include "dialogs/help.h"
#include "dialogs/message.h"
#include "integrations/brain_viewer.h"
#include "integrations/update_check.h"
#include "shell/console.h"
#include "shell/main/main_window.h"
#include "util/error.h"
#include "util/files.h"
#include "util/site_address.h"
#include "workspace/settings.h"
#include "workspace/working_folder.h"

namespace {

constexpr const char* COMPANIONS[] = {"imgcalc", "kvo_core", "kvo_edit", "kvo_parse"};

void show_error(const char* text) {
  Q_input_warning("%s", text);
}

void make_companions_executable() {
  Q_chmod_x("%s/imgcalc", kvo_s_dir.c_str());
  for (const char* companion : COMPANIONS) Q_chmod_x("%s/%s", Qs_ProgramDir.c_str(), companion);
}

}  // namespace

int main(int argc, char** argv) {
  std::set_new_handler([] { Q_error("Insufficient memory\n"); });
  Q_getprogdir(kvo_s_dir, Q_started_program(argv[0]).c_str());
  // Numbers in commands have a full stop, whatever the user's language.
  gtk_disable_setlocale();
  gtk_rc_add_default_file(Q_format("%s/etc/kvo.gtkrc", kvo_s_dir.c_str()).c_str());
  kvo_find_served_site(kvo_s_dir.str());
  Qs_HelpURL = Q_format("%smanual/?show=", kvo_site());
  if (!gtk_init_check(&argc, &argv)) Q_error("No display can be opened");
  Q_set_error_presenter(show_error);

  kvo3_main();
  kvo_load_kvo_ini();
  kvo3_check_user_dir();
  kvo3_check_brain_viewer();
  kvo_show_folder();
  Q_print("", 0, "Waiting for the user to click a button or menu item or to type a command...\n\n");
  Qs_HelpTopic = "Changes";
  if (!kvo3_new_update()) kvo3_about();
  make_companions_executable();
  gtk_main();
  return 0;
}
