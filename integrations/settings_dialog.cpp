#include "integrations/settings_dialog.h"

#include <algorithm>
#include <array>

#include "dialogs/help.h"
#include "dialogs/input.h"
#include "workspace/settings.h"

namespace {

/// Position of "(disabled)" in the list; the viewers follow it.
constexpr int DISABLED = 1;

Q_string_list viewer_options(std::span<const Brain_viewer> viewers) {
  Q_string_list options{"(disabled)"};
  for (const Brain_viewer& viewer : viewers) options.emplace_back(viewer.shown_name);
  return options;
}

int chosen_position(std::span<const Brain_viewer> viewers) {
  const auto chosen = std::ranges::find_if(
      viewers, [](const Brain_viewer& viewer) { return kvo_s_brain_viewer == viewer.stored_name; });
  if (chosen == viewers.end()) return DISABLED;
  return DISABLED + 1 + static_cast<int>(chosen - viewers.begin());
}

}  // namespace

void kvo3_settings() {
  kvo_ask_settings(kvo_brain_viewers());
}

void kvo_ask_settings(std::span<const Brain_viewer> viewers) {
  Qs_HelpTopic = "settings";
  std::array<Q_input_item, 2> items;
  Q_input_item_temp_opt(items, 0, "Brain viewer", chosen_position(viewers),
                        viewer_options(viewers));
  Q_input_item_file(items, 1, "Brain viewer executable", kvo_s_brain_viewer_exe.c_str(), "*");
  if (Q_input("SETTINGS", 2, items) == 0) return;

  const int viewer = static_cast<int>(items[0].value) - DISABLED - 1;
  const bool enabled = viewer >= 0;
  kvo_s_brain_viewer = enabled ? viewers[static_cast<std::size_t>(viewer)].stored_name : "";
  kvo_s_brain_viewer_exe = enabled ? items[1].text : Q_string();
  kvo_save_kvo_ini();
  kvo_check_brain_viewer(viewers);
}
