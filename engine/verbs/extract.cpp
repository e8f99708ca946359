// The values of the studies inside a mask: one effect a study, pooled.

#include "engine/base/outputs.h"
#include "engine/base/parallel.h"
#include "engine/base/progress.h"
#include "engine/base/refusal.h"
#include "engine/base/wording.h"
#include "engine/maps/meta_analysis.h"
#include "engine/results/effect_summary.h"
#include "engine/results/map_facts.h"
#include "engine/results/results.h"
#include "engine/verbs/verbs.h"
#include "util/text.h"

namespace kvo::verbs {

namespace {

struct Extraction {
  MetaAnalysis meta;
  std::string mask, mask_path;
  Mask used;                    ///< the mask's voxels that the analysis has too
  std::size_t mask_voxels = 0;  ///< of the mask itself
  std::vector<StudyEffect> studies;
};

struct Summary {
  PooledEffect pool;
  EggerOutcome egger;
  std::vector<PooledEffect> without;  ///< each study in turn
};

std::string output_name(const std::string& mask, const char* ending) {
  return "extract_" + mask + ending;
}

Extraction prepare_extract(const Command& command) {
  Extraction extraction;
  const StudyTable table = read_study_table();
  extraction.meta = open_meta_analysis(table, filtered_studies(table, ""));
  const Mask& analysis = extraction.meta.mask;
  const std::string& name = extraction.mask = command.arguments[0];
  for (const Member& member : extraction.meta.members)
    if (peaks_file(member.study) == output_name(name, ".txt"))
      throw Refusal("The values of the mask '" + name + "' cannot be kept: '" +
                    output_name(name, ".txt") + "' is the peaks file of study '" +
                    member.study.name + "'.");
  extraction.mask_path = own_mask_path(name);
  const Mask mask = read_mask(extraction.mask_path);
  extraction.mask_voxels = mask.size();
  std::vector<bool> both = mask.inside;
  for (std::size_t i = 0; i < both.size(); ++i) both[i] = both[i] && analysis.inside[i];
  extraction.used = mask_of(std::move(both));
  if (extraction.used.size() == 0)
    throw Refusal("The mask '" + name + "' has no voxel in common with the mask '" +
                  extraction.meta.record.mask + "' that the maps of the studies were made in.");
  return extraction;
}

double mean_of(const std::vector<float>& values) {
  double sum = 0;
  for (const float value : values) sum += double(value);
  return sum / double(values.size());
}

/// The mean effect and variance of a study. Only these maps are in memory meanwhile.
Effect effect_in(const PpRecord& record, const Mask& mask, const std::string& study) {
  return {mean_of(read_effects(record, study, mask)), mean_of(read_variances(record, study, mask))};
}

void extract_effects(Extraction& extraction) {
  const std::vector<Member>& members = extraction.meta.members;
  Action action("Extracting the values of " + Q_counted(members.size(), "study", "studies"),
                members.size(), 30);
  extraction.studies.resize(members.size());
  in_parallel(members.size(), [&](std::size_t i, std::size_t) {
    const Study& study = members[i].study;
    extraction.studies[i] = {study.name, participants_of(study.sample),
                             effect_in(extraction.meta.record, extraction.used, study.name)};
    action.step();
  });
  action.finish();
}

Summary summary_of(std::span<const StudyEffect> studies) {
  const std::vector<Effect> effects = effects_of(studies);
  return {pool_effects(effects), egger_test(effects), leave_one_out(effects)};
}

std::string voxels_text(const Extraction& extraction) {
  const std::size_t used = extraction.used.size();
  const std::string all = Q_count_text(extraction.mask_voxels);
  if (used == extraction.mask_voxels) return all + ", the whole mask";
  return Q_count_text(used) + " of the mask's " + all + "; the others lie outside of '" +
         extraction.meta.record.mask + "'";
}

void say_summary(const Extraction& extraction, const Summary& summary) {
  say("Voxels: " + voxels_text(extraction));
  say("Pooled g: " + estimate_text(summary.pool.mean));
  say("Heterogeneity: " + heterogeneity_text(summary.pool.heterogeneity));
  say("Egger's test: " + egger_text(summary.egger));
}

std::string text_file_of(const Extraction& extraction, const Summary& summary,
                         const std::vector<std::vector<std::string>>& rows) {
  ResultTable table(rows.front());
  for (const auto& row : std::span(rows).subspan(1)) table.row(row);
  table.value("mask", extraction.mask);
  table.value("mask_voxels", double(extraction.mask_voxels));
  table.value("used_voxels", double(extraction.used.size()));
  table.value("studies", double(extraction.studies.size()));
  table.value("participants", double(participants_of(extraction.studies)));
  const auto& [mean, heterogeneity, prediction, weights] = summary.pool;
  table.value("g", mean.value);
  table.value("standard_error", mean.se);
  table.value("z", mean.z);
  table.value("p", mean.p);
  table.value("low_95", mean.interval.low);
  table.value("high_95", mean.interval.high);
  if (prediction) {
    table.value("prediction_low_95", prediction->low);
    table.value("prediction_high_95", prediction->high);
  }
  table.values(heterogeneity);
  table.values(summary.egger);
  return table.text();
}

std::vector<Fact> facts_of(const Extraction& extraction, const Summary& summary) {
  std::vector<Fact> facts = {
      {"Studies",
       Q_counted(extraction.studies.size(), "study", "studies") + " with " +
           Q_counted(participants_of(extraction.studies), "participant", "participants")},
      {"Voxels", voxels_text(extraction)},
      {"Pooled Hedges' g", estimate_text(summary.pool.mean)},
  };
  if (const auto& prediction = summary.pool.prediction)
    facts.push_back({"95 % prediction interval", decimal_text(prediction->low, 3) + " to " +
                                                     decimal_text(prediction->high, 3)});
  facts.push_back({"Heterogeneity", heterogeneity_text(summary.pool.heterogeneity)});
  facts.push_back({"Egger's test", egger_text(summary.egger)});
  return facts;
}

// Such effects are those of the sample sizes, not of what was measured.
constexpr const char* unknown_heights_text =
    "Peaks of unknown height were given that of the study's significance threshold. This makes the "
    "studies look more alike than they are: heterogeneity and Egger's test are not to be relied "
    "on.";

std::string report_of(const Command& command, const Extraction& extraction,
                      const Summary& summary) {
  MapFacts known = facts_of_map("", all_verbs());
  HtmlReport report("Values within the mask '" + extraction.mask + "'",
                    "One effect for each study: the mean of its map inside the mask");
  report.heading("Result");
  report.facts(facts_of(extraction, summary));
  if (known.methods.unknown_heights) report.paragraph(unknown_heights_text);
  report.heading("Studies");
  report.table(effect_html(extraction.studies, summary.pool.weights));
  add_pool_plots(report, extraction.studies, summary.pool, summary.egger);
  if (!summary.without.empty()) {
    report.heading("Leave-one-out");
    report.paragraph("The pooled effect of all studies but one.");
    report.table(leave_one_out_html(extraction.studies, summary.without));
  }
  known.methods.analysis = MethodsFacts::Analysis::extraction;
  known.methods.studies = extraction.studies.size();
  known.methods.participants = participants_of(extraction.studies);
  known.methods.mask_of_extraction = extraction.mask;
  report.heading("What was run");
  if (const std::string made = command_of_image(extraction.mask_path); !made.empty())
    known.commands.push_back(made);
  known.commands.push_back(command.text());
  report.commands(known.commands);
  report.facts(known.facts);
  report.methods(methods_of(known.methods));
  return report.finish();
}

}  // namespace

void check_extract(const Command& command) {
  prepare_extract(command);
}

void run_extract(const Command& command) {
  Outputs outputs;
  Extraction extraction = prepare_extract(command);
  extract_effects(extraction);
  const Summary summary = summary_of(extraction.studies);
  const auto rows = effect_rows(extraction.studies, summary.pool.weights);
  const std::string& mask = extraction.mask;
  const std::string report = output_name(mask, ".html");
  outputs.write_text(output_name(mask, ".txt"), text_file_of(extraction, summary, rows));
  outputs.write_text(output_name(mask, ".csv"), effect_csv(rows));
  outputs.write_text(report, report_of(command, extraction, summary));
  outputs.commit();
  say_summary(extraction, summary);
  say("Report: " + report);
}

}  // namespace kvo::verbs
