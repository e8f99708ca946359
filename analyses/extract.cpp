#include "analyses/extract.h"

#include <array>

#include "analyses/asking.h"
#include "analyses/choices.h"
#include "analyses/names.h"
#include "dialogs/help.h"
#include "dialogs/input.h"
#include "workspace/files/file_names.h"

namespace {

constexpr const char* EXTRACT_MESSAGE =
    "EXTRACT\n"
    "Select a mask file. Please create a new mask or copy it from elsewhere to the working "
    "directory if the desired mask is not in this list.";
constexpr const char* NO_MASKS = "No masks found. Please create or copy a mask and try again.";

constexpr const char* PLACE_LABEL = "Mask";

}  // namespace

Kvo_composed kvo_compose_extract(const std::string& mask) {
  if (mask.empty()) return kvo_refusal(kvo_not_selected(PLACE_LABEL));
  return kvo_composed({mask}, Q_format("# Extract values within mask '%s':\n", mask.c_str()),
                      Q_format("extract %s", kvo_word(mask).c_str()));
}

void kvo3_extract() {
  if (!kvo_maps_found()) return;
  Qs_HelpTopic = "extract";
  const Q_string_list masks = kvo_image_choices(".", KVO_MASK_PREFIX);
  if (kvo_refused(masks.empty() ? NO_MASKS : "")) return;
  std::array<Q_input_item, 1> items;
  Q_input_item_opt(items, 0, PLACE_LABEL, masks, 1);
  if (Q_input(EXTRACT_MESSAGE, items.size(), items) == 0) return;
  const Kvo_composed composed = kvo_compose_extract(kvo_chosen(masks, items[0].value));
  if (!kvo_refused(composed.refusal)) kvo_run(composed);
}
