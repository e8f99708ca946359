#include "analyses/mean.h"

#include <array>
#include <optional>

#include "analyses/asking.h"
#include "analyses/choices.h"
#include "analyses/jackknife.h"
#include "analyses/jackknife_plan.h"
#include "analyses/names.h"
#include "dialogs/canned.h"
#include "dialogs/help.h"
#include "dialogs/input.h"
#include "shell/busy.h"
#include "workspace/files/file_names.h"
#include "workspace/files/map_lists.h"
#include "workspace/files/study_table.h"
#include "workspace/load_table.h"

namespace {

constexpr const char* MEAN_MESSAGE =
    "MEAN ANALYSIS\n"
    "Please enter a name for this analysis. You can select\n"
    "a filter for subgroup analysis, and click 'jackknife' to perform a\n"
    "jackknife sensitivity analysis.";
constexpr const char* OVERWRITE_MEAN =
    "A map with the same name already exists. Do you want to overwrite it?";
constexpr const char* NO_STUDIES = "No studies found. Please edit table and try again.";

std::optional<Kvo_mean_answers> ask_mean() {
  const Q_string_list filters = kvo_indicator_choices();
  std::array<Q_input_item, 3> items;
  Q_input_item_str(items, 0, "Name", "MyMean");
  Q_input_item_opt(items, 1, "Filter", filters, 1);
  Q_input_item_boolean(items, 2, "Jackknife", false);
  if (Q_input(MEAN_MESSAGE, items.size(), items) == 0) return std::nullopt;
  return Kvo_mean_answers{items[0].text.str(), kvo_chosen_variable(filters, items[1].value),
                          items[2].value != 0};
}

/// Tells the user why a jackknife cannot write to the study table's file; empty when it can.
std::string table_refusal() {
  const std::string obstacle = kvotable_obstacle();
  if (obstacle.empty()) return "";
  return Q_format("A jackknife analysis cannot write its variable into the file '%s': %s.",
                  KVO_TABLE_FILE, obstacle.c_str())
      .str();
}

void run_jackknife(const Kvo_mean_answers& answers) {
  const Kvo_composed composed = kvo_compose_jackknife(answers, KVO_TableT);
  if (kvo_refused(composed.refusal) || kvo_refused(table_refusal())) return;
  const Q_input_block block;
  kvo_print_comment(composed);
  Q_string name(kvo_safe_name(answers.name));
  kvo3_jackknife(name, answers.filter.c_str());
}

void run_mean(const Kvo_mean_answers& answers) {
  const Kvo_composed composed = kvo_compose_mean(answers);
  if (kvo_refused(composed.refusal)) return;
  const bool exists = Q_get_string_pos(kvo_maps, kvo_vs_maps, "%s", answers.name.c_str()) >= 0;
  if (exists && !Q_input_boolean(OVERWRITE_MEAN, false)) return;
  kvo_run(composed);
}

}  // namespace

Kvo_composed kvo_compose_mean(const Kvo_mean_answers& answers) {
  if (answers.name.empty()) return kvo_refusal(KVO_NO_NAME);
  const std::string name = kvo_safe_name(answers.name);
  if (std::string reason = kvo_map_name_refusal(name); !reason.empty())
    return kvo_refusal(std::move(reason));
  const std::string& filter = answers.filter;
  return kvo_composed(
      {name, filter},
      Q_format("# Calculate the mean of %s as '%s':\n", kvo_studies(filter).c_str(), name.c_str()),
      Q_format("%s = mean %s", kvo_word(name).c_str(), kvo_word(filter).c_str()));
}

Kvo_composed kvo_compose_jackknife(const Kvo_mean_answers& answers, const Q_table& study_table) {
  if (answers.name.empty()) return kvo_refusal(KVO_NO_NAME);
  const std::string name = kvo_safe_name(answers.name);
  const std::string& filter = answers.filter;
  const Kvo_jackknife_plan plan = kvo_plan_jackknife(study_table, name, filter);
  if (plan.runs.empty()) return kvo_refusal(NO_STUDIES);
  Q_string_list names{name, filter};
  for (const Kvo_jackknife_run& run : plan.runs) names.push_back(run.map);
  return kvo_composed(names,
                      Q_format("# Perform a jackknife analysis of %s as '%s':\n",
                               kvo_studies(filter).c_str(), name.c_str()),
                      "");
}

void kvo3_mean() {
  if (!kvo_maps_found()) return;
  kvo_load_kvo_maps_txt();
  Qs_HelpTopic = "mean";
  const std::optional<Kvo_mean_answers> answers = ask_mean();
  if (!answers) return;
  if (answers->jackknife)
    run_jackknife(*answers);
  else
    run_mean(*answers);
}
