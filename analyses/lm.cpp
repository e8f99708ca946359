#include "analyses/lm.h"

#include <algorithm>

#include "analyses/asking.h"
#include "analyses/choices.h"
#include "analyses/names.h"
#include "dialogs/canned.h"
#include "dialogs/help.h"
#include "workspace/files/map_lists.h"

namespace {

constexpr const char* OVERWRITE_MODEL =
    "Maps with similar names already exist. Do you want to overwrite them if necessary?";

constexpr const char* NO_INDICATORS =
    "No indicators found, which are variables with the values 0 and 1. Please edit table and try "
    "again.";

constexpr Kvo_term TWO_GROUPS[] = {
    {"2nd group indicator", true, 2},
    {"Covariate", false, 1},
    {"(another) Covariate", false, 1},
};
constexpr Kvo_term THREE_GROUPS[] = {
    {"2nd group indicator", true, 2},
    {"3rd group indicator", true, 3},
    {"Covariate", false, 1},
    {"(another) Covariate", false, 1},
};
constexpr Kvo_term REGRESSION[] = {
    {"Regressor", false, 2},
};
constexpr Kvo_term MULTIPLE_REGRESSION[] = {
    {"1st regressor", false, 2},
    {"2nd regressor", false, 3},
};

constexpr Kvo_lm_kind KINDS[] = {
    {"Compare 2 groups", "lm_groups", "MyTwoGroups",
     "Select the indicator specifying the 2nd group. Optionally select up to 2 covariates and a "
     "filter",
     TWO_GROUPS},
    {"Compare 3 groups", "lm_groups", "MyThreeGroups",
     "Select the indicators specifying the 2nd and 3rd groups. Optionally select up to 2 "
     "covariates and a filter",
     THREE_GROUPS},
    {"Meta-regression", "lm_regression", "MyRegression",
     "REGRESSION ANALYSIS\n"
     "Please enter a name for this analysis and select the regressor. You can select a filter for "
     "subgroup analysis.",
     REGRESSION},
    {"Multiple meta-regression", "lm_regression", "MyRegression",
     "REGRESSION ANALYSIS\n"
     "Please enter a name for this analysis and select the regressors. You can select a filter for "
     "subgroup analysis.",
     MULTIPLE_REGRESSION},
};

/// What the engine appends to a model's name for its first map, by the number of terms.
constexpr const char* FIRST_MAP_SUFFIXES[] = {"_0", "_00", "_000", "_0000"};

/// Asks which kind of model; null when the user does not press OK.
const Kvo_lm_kind* ask_kind() {
  Qs_HelpTopic = "lm";
  Q_string_list options;
  for (const Kvo_lm_kind& kind : KINDS) options.emplace_back(kind.option);
  const int position = Q_input_opt("Select a model", 1, options);
  return position == 0 ? nullptr : &KINDS[position - 1];
}

}  // namespace

std::span<const Kvo_lm_kind> kvo_lm_kinds() {
  return KINDS;
}

Kvo_composed kvo_compose_lm(const Kvo_lm_kind& kind, const Kvo_model_answers& answers) {
  if (answers.name.empty()) return kvo_refusal(KVO_NO_NAME);
  if (answers.terms.front().empty()) return kvo_refusal(kvo_not_selected(kind.terms.front().label));
  Q_string shown, model;
  for (const std::string& term : answers.terms) {
    if (term.empty()) continue;
    const char* plus = model.empty() ? "" : " + ";
    Q_strcat(shown, "%s%s", plus, term.c_str());
    Q_strcat(model, "%s%s", plus, kvo_word(term).c_str());
  }
  const Q_string subject = Q_format("the linear model 'Y = %s'", shown.c_str());
  return kvo_compose_model(answers, subject, "lm", model);
}

bool kvo_lm_may_overwrite(const Q_string_list& maps, const std::string& name) {
  return std::ranges::any_of(FIRST_MAP_SUFFIXES, [&](const char* suffix) {
    return std::ranges::find(maps, name + suffix) != maps.end();
  });
}

void kvo3_lm() {
  if (!kvo_maps_found()) return;
  kvo_load_kvo_maps_txt();
  const Kvo_model_choices choices{kvo_variable_choices(), kvo_indicator_choices()};
  const bool has_variables = choices.variables.size() > 1;
  if (kvo_refused(has_variables ? "" : "No variables found. Please edit table and try again."))
    return;
  const Kvo_lm_kind* kind = ask_kind();
  if (kind == nullptr) return;
  const bool lacks_groups = kind->terms.front().is_indicator && choices.indicators.size() < 2;
  if (kvo_refused(lacks_groups ? NO_INDICATORS : "")) return;
  Qs_HelpTopic = kind->help_topic;
  const std::optional<Kvo_model_answers> answers =
      kvo_ask_model(kind->message, kind->default_name, kind->terms, choices);
  if (!answers) return;
  const Kvo_composed composed = kvo_compose_lm(*kind, *answers);
  if (kvo_refused(composed.refusal)) return;
  if (kvo_lm_may_overwrite(kvo_vs_maps, answers->name) && !Q_input_boolean(OVERWRITE_MODEL, false))
    return;
  kvo_run(composed);
}
