#include "analyses/globals.h"

#include "analyses/asking.h"
#include "analyses/choices.h"
#include "analyses/names.h"
#include "dialogs/help.h"
#include "workspace/files/study_table.h"

namespace {

constexpr const char* GLOBALS_MESSAGE =
    "GLOBALS ANALYSIS\n"
    "Please enter a name for this analysis. The other fields are optional: one or two indicators "
    "specifying a 2nd and 3rd groups, up to two covariates, and a filter for subgroup analysis.";

constexpr Kvo_term TERMS[] = {
    {"2nd group indicator", true, 1},
    {"3rd group indicator", true, 1},
    {"Covariate", false, 1},
    {"(another) Covariate", false, 1},
};

struct Needed_variable {
  const char* name;
  bool of_second_sample;  ///< needed only when the table has the second sample's size
};
constexpr Needed_variable NEEDED_VARIABLES[] = {
    {"mean1", false}, {"sd1", false}, {"mean2", true}, {"sd2", true}};

bool has_variable(const Q_table& study_table, const char* name) {
  return Q_get_table_row_pos(study_table, name) >= 0;
}

}  // namespace

std::string kvo_missing_global_variable(const Q_table& study_table) {
  const bool has_second_sample = has_variable(study_table, "n2");
  for (const Needed_variable& variable : NEEDED_VARIABLES) {
    if (variable.of_second_sample && !has_second_sample) continue;
    if (!has_variable(study_table, variable.name))
      return Q_format("Variable '%s' not found in the KVO table", variable.name).str();
  }
  return "";
}

Kvo_composed kvo_compose_globals(const Kvo_model_answers& answers) {
  Q_string shown, model;
  for (const std::string& term : answers.terms) {
    if (term.empty()) continue;
    Q_strcat(shown, " + %s", term.c_str());
    Q_strcat(model, " + %s", kvo_word(term).c_str());
  }
  const Q_string subject = Q_format("globals of the model 'Y = 1%s'", shown.c_str());
  return kvo_compose_model(answers, subject, "globals", model);
}

void kvo3_globals() {
  if (kvo_refused(kvo_missing_global_variable(KVO_TableT))) return;
  const Kvo_model_choices choices{kvo_variable_choices(), kvo_indicator_choices()};
  Qs_HelpTopic = "globals";
  const std::optional<Kvo_model_answers> answers =
      kvo_ask_model(GLOBALS_MESSAGE, "MyGlobals", TERMS, choices);
  if (!answers) return;
  const Kvo_composed composed = kvo_compose_globals(*answers);
  if (!kvo_refused(composed.refusal)) kvo_run(composed);
}
