#include "analyses/create_mask.h"

#include <algorithm>
#include <array>
#include <optional>

#include "analyses/asking.h"
#include "analyses/choices.h"
#include "analyses/names.h"
#include "dialogs/canned.h"
#include "dialogs/help.h"
#include "dialogs/input.h"
#include "nifti/nifti_file.h"
#include "workspace/files/region_labels.h"

namespace {

constexpr const char* TYPE_MESSAGE =
    "CREATION OF A MASK\n"
    "Select a mask type: an MNI coordinate (i.e. x,y,z) or an AAL or Ferrow et al label (e.g. "
    "right amygdala).";
constexpr const char* LABEL_MESSAGE =
    "CREATION OF A MASK\n"
    "Type the name of the mask and select the AAL or Ferrow et al label.";
constexpr const char* COORDINATE_MESSAGE =
    "CREATION OF A MASK\n"
    "Type an MNI coordinate. You may optionally enter a name for this mask - otherwise, the name "
    "will be 'mask' plus the coordinate.";

enum Mask_type { BY_LABEL = 1, BY_COORDINATE = 2 };

constexpr const char* REGION_LABEL = "Brain region";
constexpr const char* NAME_LABEL = "Name (optional)";

/// The region's text as a name for commands, without the remarks in parentheses of two regions.
std::string region_name(const std::string& region) {
  std::string name = region;
  std::erase_if(name, [](char character) { return character == '(' || character == ')'; });
  return name;
}

/// Why the installed atlas does not contain the region. Empty when it does, and also when the atlas
/// cannot be read, which the engine reports.
std::string atlas_refusal(int region) {
  Nifti_options options;
  options.all_types = true;
  const auto read =
      nifti_read(Q_format("%s/share/atlas_aal_frw.nii.gz", kvo_s_dir.c_str()).str(), options);
  const auto* atlas = std::get_if<Nifti_image>(&read);
  const auto first = static_cast<float>(region);
  const auto is_inside = [first](float value) { return value >= first && value < first + 1; };
  if (atlas == nullptr || std::ranges::any_of(atlas->values(0), is_inside)) return "";
  Q_string text;
  Q_get_mni_label(text, first);
  return Q_format(
             "The atlas has no voxel of region %i, '%s'. Please select another region and try "
             "again.",
             region, text.c_str())
      .str();
}

std::optional<Kvo_composed> ask_label() {
  const Q_string_list regions = kvo_region_texts();
  std::array<Q_input_item, 2> items;
  Q_input_item_opt(items, 0, REGION_LABEL, regions, 1);
  Q_input_item_str(items, 1, NAME_LABEL, "");
  if (Q_input(LABEL_MESSAGE, items.size(), items) == 0) return std::nullopt;
  const std::string region = kvo_chosen(regions, items[0].value);
  if (!region.empty())
    if (std::string reason = atlas_refusal(kvo_region_number(region)); !reason.empty())
      return kvo_refusal(std::move(reason));
  return kvo_compose_label_mask(region, items[1].text.str());
}

std::optional<Kvo_composed> ask_coordinate() {
  std::array<Q_input_item, 2> items;
  Q_input_item_voxel(items, 0, "MNI coordinate", 0, 0, 0);
  Q_input_item_str(items, 1, NAME_LABEL, "");
  if (Q_input(COORDINATE_MESSAGE, items.size(), items) == 0) return std::nullopt;
  return kvo_compose_coordinate_mask(items[0].voxel, items[1].text.str());
}

/// The mask that the user describes; nothing when a dialog is left without OK.
std::optional<Kvo_composed> ask_mask() {
  const int type =
      Q_input_opt(TYPE_MESSAGE, BY_LABEL, 2, "AAL / Ferrow et al label", "MNI coordinate");
  if (type == BY_LABEL) return ask_label();
  if (type == BY_COORDINATE) return ask_coordinate();
  return std::nullopt;
}

}  // namespace

Kvo_composed kvo_compose_label_mask(const std::string& region, const std::string& typed_name) {
  if (region.empty()) return kvo_refusal(kvo_not_selected(REGION_LABEL));
  const std::string name = kvo_safe_name(typed_name.empty() ? region_name(region) : typed_name);
  return kvo_composed(
      {name}, Q_format("# Create a mask from label [%s]:\n", region.c_str()),
      Q_format("%s = mask label, %i", kvo_word(name).c_str(), kvo_region_number(region)));
}

Kvo_composed kvo_compose_coordinate_mask(const Q_voxel& coordinate, const std::string& typed_name) {
  const auto [x, y, z] = coordinate;
  const std::string name =
      kvo_safe_name(typed_name.empty() ? Q_format("%i_%i_%i", x, y, z).str() : typed_name);
  return kvo_composed(
      {name}, Q_format("# Create a mask from coordinate [%i,%i,%i]:\n", x, y, z),
      Q_format("%s = mask coordinate, %i, %i, %i", kvo_word(name).c_str(), x, y, z));
}

void kvo3_dialog_create_roimask() {
  if (!kvo_maps_found()) return;
  Qs_HelpTopic = "create.mask";
  const std::optional<Kvo_composed> composed = ask_mask();
  if (composed && !kvo_refused(composed->refusal)) kvo_run(*composed);
}
