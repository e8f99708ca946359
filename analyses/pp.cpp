#include "analyses/pp.h"

#include <array>
#include <optional>

#include "analyses/asking.h"
#include "analyses/choices.h"
#include "analyses/names.h"
#include "dialogs/canned.h"
#include "dialogs/help.h"
#include "dialogs/input.h"
#include "dialogs/message.h"
#include "workspace/files/file_names.h"

namespace {

constexpr const char* FIRST_MESSAGE =
    "PREPROCESSING\n"
    "A new meta-analysis will be created. Please choose the modality of the meta-analysis and the "
    "number or randomizations (you can select just one if this is not the final meta-analysis). "
    "Note that any previous meta-analysis in this folder will be removed.";
constexpr const char* TBSS_MESSAGE =
    "Pre-processing steps in TBSS meta-analyses\n"
    "TBSS-based meta-analyses require a set of special steps BEFORE including the data into KVO "
    "software. Please press Help for further information.  Do you want to continue?";
constexpr const char* SECOND_MESSAGE =
    "PREPROCESSING\n"
    "These parameters have been set according to the modality you have selected. However, you can "
    "change them for special purposes. The effects of isotropic FWHM are negligible with full "
    "anisotropy (1).";

constexpr Kvo_modality MODALITIES[] = {
    {"DTI - fractional anisotropy", "fractional_anisotropy", "white_matter", false},
    {"DTI - fractional anisotropy (TBSS)", "fractional_anisotropy", "tbss", true},
    {"Functional MRI or PET", "gray_matter", "gray_matter", false},
    {"VBM - cerebrospinal fluid", "cerebrospinal_fluid", "cerebrospinal_fluid", false},
    {"VBM - gray matter", "gray_matter", "gray_matter", false},
    {"VBM - white matter", "white_matter", "white_matter", false},
    {"Other", "gray_matter", "gray_matter", false},
};
constexpr int FUNCTIONAL = 3;

constexpr const char* TEMPLATE_LABEL = "Correlation template";
constexpr const char* MASK_LABEL = "Mask";

/// The installation's images that fit the suite's grid.
struct Images {
  Q_string_list templates;
  Q_string_list masks;
};

std::optional<Images> find_images() {
  const Q_string share = Q_format("%s/share", kvo_s_dir.c_str());
  Images images{kvo_image_choices(share.c_str(), "cor_"),
                kvo_image_choices(share.c_str(), KVO_MASK_PREFIX)};
  if (images.templates.empty())
    Q_input_warning("No correlation templates found in '%s'.", share.c_str());
  else if (images.masks.empty())
    Q_input_warning("No masks found in '%s'.", share.c_str());
  else
    return images;
  return std::nullopt;
}

struct Start {
  const Kvo_modality* modality;
  float randomizations;
};

std::optional<Start> ask_start() {
  Q_string_list options;
  for (const Kvo_modality& row : MODALITIES) options.emplace_back(row.option);
  std::array<Q_input_item, 2> items;
  Q_input_item_temp_opt(items, 0, "Modality", FUNCTIONAL, options);
  Q_input_item_num(items, 1, "Number of randomizations", 0, 1, 500, 1);
  if (Q_input(FIRST_MESSAGE, items.size(), items) == 0) return std::nullopt;
  return Start{&kvo_modality(static_cast<int>(items[0].value)), items[1].value};
}

bool confirm_own_steps() {
  Qs_HelpTopic = "tbss";
  if (!Q_input_boolean(TBSS_MESSAGE, false)) return false;
  Qs_HelpTopic = "pp";
  return true;
}

std::optional<Kvo_pp_answers> ask_parameters(const Start& start, const Images& images) {
  const int default_template =
      kvo_position_or_first(images.templates, start.modality->correlation_template);
  const int default_mask = kvo_position_or_first(images.masks, start.modality->mask);
  std::array<Q_input_item, 4> items;
  Q_input_item_opt(items, 0, TEMPLATE_LABEL, images.templates, default_template);
  Q_input_item_num(items, 1, "Anisotropy", -1, 0, 1, 1);
  Q_input_item_num(items, 2, "Isotropic FWHM (mm)", 0, 10, 50, 20);
  Q_input_item_opt(items, 3, MASK_LABEL, images.masks, default_mask);
  if (Q_input(SECOND_MESSAGE, items.size(), items) == 0) return std::nullopt;
  return Kvo_pp_answers{kvo_chosen(images.templates, items[0].value), items[1].value,
                        items[2].value, kvo_chosen(images.masks, items[3].value),
                        start.randomizations};
}

}  // namespace

const Kvo_modality& kvo_modality(int position) {
  const int last = static_cast<int>(std::size(MODALITIES));
  return MODALITIES[position >= 1 && position <= last ? position - 1 : last - 1];
}

Kvo_composed kvo_compose_pp(const Kvo_pp_answers& answers) {
  const std::string& correlation_template = answers.correlation_template;
  const std::string& mask = answers.mask;
  if (correlation_template.empty()) return kvo_refusal(kvo_not_selected(TEMPLATE_LABEL));
  if (mask.empty()) return kvo_refusal(kvo_not_selected(MASK_LABEL));
  const auto anisotropy = static_cast<double>(answers.anisotropy);
  const auto fwhm = static_cast<double>(answers.fwhm);
  const auto randomizations = static_cast<double>(answers.randomizations);
  return kvo_composed(
      {correlation_template, mask},
      Q_format("# Preprocess the studies ('%s', anisotropy = %.1f, isotropic FWHM = %.0fmm, mask = "
               "'%s', %.0f randomizations):\n",
               correlation_template.c_str(), anisotropy, fwhm, mask.c_str(), randomizations),
      Q_format("pp %s, %.1f, %.0f, %s, %.0f", kvo_word(correlation_template).c_str(), anisotropy,
               fwhm, kvo_word(mask).c_str(), randomizations));
}

void kvo3_pp() {
  Qs_HelpTopic = "pp";
  const std::optional<Images> images = find_images();
  if (!images) return;
  const std::optional<Start> start = ask_start();
  if (!start) return;
  if (start->modality->needs_own_steps && !confirm_own_steps()) return;
  const std::optional<Kvo_pp_answers> answers = ask_parameters(*start, *images);
  if (!answers) return;
  const Kvo_composed composed = kvo_compose_pp(*answers);
  if (!kvo_refused(composed.refusal)) kvo_run(composed);
}
