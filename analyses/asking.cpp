#include "analyses/asking.h"

#include "dialogs/message.h"
#include "shell/busy.h"
#include "shell/command_runner.h"
#include "shell/console.h"
#include "util/text.h"
#include "workspace/files/file_names.h"

bool kvo_maps_found() {
  if (Q_file_exists("%s", KVO_MAPS_FILE) != 0) return true;
  Q_input_warning("No maps found. Please run preprocessing and try again.");
  return false;
}

bool kvo_refused(const std::string& reason) {
  if (reason.empty()) return false;
  Q_input_warning("%s", reason.c_str());
  return true;
}

void kvo_print_comment(const Kvo_composed& composed) {
  Q_print("", Q_BATCH_PANE, "%s", Q_markup_escape(composed.comment).c_str());
}

void kvo_run(const Kvo_composed& composed) {
  // So that no other work comes between the comment and its command.
  const Q_input_block block;
  kvo_print_comment(composed);
  kvo3_exec_core(true, "%s", composed.command.c_str());
}
