#include "integrations/update_check.h"

#include <gtk/gtk.h>

#include <cmath>
#include <cstdlib>

#include "dialogs/frame.h"
#include "dialogs/message.h"
#include "kvo_config.h"
#include "util/files.h"
#include "util/process.h"

namespace {

/// The first line of the site's version file; empty when the site does not answer.
Q_string version_on_site() {
  std::string line;
  const Q_pipe reply =
      Q_openr_exec(false, "wget -q -t 1 -T 2 -O - %ssoftware/current.txt", KVO_SITE_URL);
  if (reply == nullptr) return {};
  for (int byte = std::fgetc(reply.get());
       byte != EOF && byte != '\n' && byte != '\r' && byte != 0xFF && line.size() < Q_STRING_MAX;
       byte = std::fgetc(reply.get()))
    line += static_cast<char>(byte);
  return Q_string(line);
}

bool user_accepts() {
  Q_dialog dialog(Q_input_new_dialog(
      "A new version of KVO seems to be available! Do you want to download and install it now?",
      true));
  gtk_dialog_set_default_response(GTK_DIALOG(dialog.get()), GTK_RESPONSE_OK);
  return dialog.run();
}

[[noreturn]] void download_and_end() {
  const std::string target = kvo_s_dir.str() + "/update";
  Q_execute_r(true, "wget -O %s %ssoftware/update/update%.2f", Q_shell_quoted(target).c_str(),
              KVO_SITE_URL, KVO_VERSION);
  Q_chmod_x("%s", target.c_str());
  std::exit(0);
}

}  // namespace

bool kvo_is_newer_version(const char* reply_line) {
  return std::floor(std::strtod(reply_line, nullptr) * 100) > KVO_VERSION * 100;
}

bool kvo3_new_update() {
  if (!kvo_is_newer_version(version_on_site().c_str())) return false;
  if (user_accepts()) download_and_end();
  return true;
}

void kvo3_check_updates() {
  if (!kvo3_new_update()) Q_input_warning("This is the last available version of KVO");
}
