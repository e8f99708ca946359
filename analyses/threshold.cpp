#include "analyses/threshold.h"

#include <array>
#include <optional>

#include "analyses/asking.h"
#include "analyses/choices.h"
#include "dialogs/help.h"
#include "dialogs/input.h"
#include "dialogs/message.h"
#include "util/process.h"
#include "workspace/files/map_lists.h"

namespace {

constexpr const char* LEVEL_MESSAGE =
    "THRESHOLD\nSelect a map and a probability (usually lower for meta-regressions).";
constexpr const char* NO_MAPS = "No null distrubutions found. Please estimate maps and try again.";

constexpr const char* MAP_LABEL = "Map";

std::optional<Kvo_threshold_answers> ask_threshold() {
  std::array<Q_input_item, 4> items;
  Q_input_item_opt(items, 0, MAP_LABEL, kvo_vs_nds, 1);
  Q_input_item_num(items, 1, "Probability", -5, 0.00001F, 0.5F, 0.005F);
  Q_input_item_num(items, 2, "Peak height threshold", -3, 0.001F, 10, 1);
  Q_input_item_num(items, 3, "Extent threshold", 0, 1, 100, 10);
  if (Q_input(LEVEL_MESSAGE, items.size(), items) == 0) return std::nullopt;
  return Kvo_threshold_answers{kvo_chosen(kvo_vs_nds, items[0].value), items[1].value,
                               items[2].value, static_cast<int>(items[3].value)};
}

}  // namespace

Kvo_composed kvo_compose_threshold(const Kvo_threshold_answers& answers) {
  const std::string& map = answers.map;
  if (map.empty()) return kvo_refusal(kvo_not_selected(MAP_LABEL));
  const auto probability = static_cast<double>(answers.probability);
  const auto peak_height = static_cast<double>(answers.peak_height);
  const int extent = answers.extent;
  return kvo_composed(
      {map},
      Q_format("# Threshold '%s' with p %.5f, minimum peak height %.3f, minimum %i voxels:\n",
               map.c_str(), probability, peak_height, extent),
      Q_format("threshold %s, p, %.5f, %.3f, %i", Q_shell_quoted(map).c_str(), probability,
               peak_height, extent));
}

void kvo3_threshold() {
  Qs_HelpTopic = "threshold";
  if (!kvo_maps_found()) return;
  if (kvo_refused(kvo3_load_nd_names() == 0 ? NO_MAPS : "")) return;
  const std::optional<Kvo_threshold_answers> answers = ask_threshold();
  if (!answers) return;
  const Kvo_composed composed = kvo_compose_threshold(*answers);
  if (!kvo_refused(composed.refusal)) kvo_run(composed);
}
