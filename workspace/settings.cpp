#include "workspace/settings.h"

#include <cerrno>
#include <cstring>
#include <optional>

#include "shell/console.h"
#include "util/files.h"
#include "util/read_file.h"
#include "util/text.h"
#include "util/whole_file.h"
#include "workspace/files/settings_file.h"

Q_string kvo_s_user_dir;
Q_string kvo_s_brain_viewer = "mricron";
Q_string kvo_s_brain_viewer_exe;

Q_string kvo_settings_path() {
  return Q_format("%s/etc/%s.ini", kvo_s_dir.c_str(), KVO_PLATFORM);
}

void kvo_load_kvo_ini() {
  kvo_s_brain_viewer = "mricron";
  const std::optional<std::string> content = Q_read_text(kvo_settings_path().c_str());
  if (!content) return;
  Kvo_settings settings{kvo_s_user_dir, kvo_s_brain_viewer, kvo_s_brain_viewer_exe};
  kvo_read_settings(*content, settings);
  kvo_s_user_dir = settings.working_directory;
  kvo_s_brain_viewer = settings.brain_viewer;
  kvo_s_brain_viewer_exe = settings.brain_viewer_executable;
}

void kvo_save_kvo_ini() {
  const Kvo_settings settings{kvo_s_user_dir, kvo_s_brain_viewer, kvo_s_brain_viewer_exe};
  const Q_string path = kvo_settings_path();
  if (!Q_write_whole_or_die(path.c_str(), kvo_settings_text(settings))) {
    const char* reason = std::strerror(errno);
    Q_print_warning(0,
                    "The settings could not be saved in '%s' (%s); the earlier ones stay there.\n",
                    Q_markup_escape(path.str()).c_str(), reason);
    return;
  }
  for (const Kvo_lost_setting& lost : kvo_lost_settings(settings))
    Q_print_warning(0,
                    "The settings file cannot hold the %s '%s': the next start would take '%s' "
                    "instead. Please use a name without equals signs, line breaks or repeated "
                    "blanks.\n",
                    lost.key, Q_markup_escape(lost.value.str()).c_str(),
                    Q_markup_escape(lost.read_back.str()).c_str());
}
