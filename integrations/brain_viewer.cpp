#include "integrations/brain_viewer.h"

#include <algorithm>
#include <string>

#include "shell/console.h"
#include "util/files.h"
#include "util/text.h"
#include "workspace/settings.h"

namespace {

#define KVO_FOUND(name) "<b>Good news!</b> - " name " program has been found at %s\n\n"
#define KVO_MISSING(name)                                                                \
  name " program not found. Please either specify " name " executable, or disable " name \
       " brain viewer, by clicking [Settings] in [Tools] menu.\n"

constexpr Brain_viewer VIEWERS[] = {
    {"fslview", "FSLView", "/usr/bin/fslview", KVO_FOUND("FSLView"), KVO_MISSING("FSLView")},
    {"mricron", "MRIcron", "/usr/bin/mricron", KVO_FOUND("MRIcron"), KVO_MISSING("MRIcron")},
};

}  // namespace

std::span<const Brain_viewer> kvo_brain_viewers() {
  return VIEWERS;
}

void kvo3_check_brain_viewer() {
  kvo_check_brain_viewer(VIEWERS);
}

void kvo_check_brain_viewer(std::span<const Brain_viewer> viewers) {
  const auto viewer = std::ranges::find_if(
      viewers, [](const Brain_viewer& one) { return kvo_s_brain_viewer == one.stored_name; });
  if (viewer == viewers.end() || Q_program_exists("%s", kvo_s_brain_viewer_exe.c_str()) != 0)
    return;
  if (Q_program_exists("%s", viewer->standard_executable) == 0) {
    Q_print_warning(0, "%s", viewer->missing_message);
    return;
  }
  kvo_s_brain_viewer_exe = viewer->standard_executable;
  std::string message = viewer->found_message;
  message.replace(message.find("%s"), 2, Q_markup_escape(viewer->standard_executable));
  Q_print("", 0, "%s", message.c_str());
  kvo_save_kvo_ini();
}
