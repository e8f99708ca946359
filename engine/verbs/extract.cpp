// The effect inside a mask. Where all studies have images, it is their mean values there, pooled;
// where some have peaks, the estimate by the peaks' likelihood.

#include <algorithm>

#include "engine/base/outputs.h"
#include "engine/base/parallel.h"
#include "engine/base/progress.h"
#include "engine/base/refusal.h"
#include "engine/base/wording.h"
#include "engine/maps/meta_analysis.h"
#include "engine/model/region_estimate.h"
#include "engine/results/circular_region.h"
#include "engine/results/effect_summary.h"
#include "engine/results/estimate_record.h"
#include "engine/results/map_facts.h"
#include "engine/results/region_summary.h"
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
  std::string circularity;
  std::vector<StudyEffect> studies;
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

/// The effects of the studies that have images.
std::vector<std::optional<Effect>> effects_of_images(const Extraction& extraction) {
  const std::vector<Member>& members = extraction.meta.members;
  const auto images = std::size_t(std::count_if(
      members.begin(), members.end(), [](const Member& member) { return member.has_image; }));
  std::vector<std::optional<Effect>> effects(members.size());
  if (images == 0) return effects;
  Action action("Extracting the values of " + Q_counted(images, "study", "studies"), images, 30);
  in_parallel(members.size(), [&](std::size_t i, std::size_t) {
    if (!members[i].has_image) return;
    effects[i] = effect_in(extraction.meta.record, extraction.used, members[i].study.name);
    action.step();
  });
  action.finish();
  return effects;
}

/// The maps of the studies that have images.
StudyMaps maps_of_images(const MetaAnalysis& meta) {
  StudyMaps maps(meta.members.size());
  in_parallel(meta.members.size(), [&](std::size_t s, std::size_t) {
    if (!meta.members[s].has_image) return;
    maps.g[s] = read_effects(meta.record, meta.members[s].study.name, meta.mask);
    maps.var[s] = read_variances(meta.record, meta.members[s].study.name, meta.mask);
  });
  return maps;
}

std::string voxels_text(const Extraction& extraction) {
  const std::size_t used = extraction.used.size();
  const std::string all = Q_count_text(extraction.mask_voxels);
  if (used == extraction.mask_voxels) return all + ", the whole mask";
  return Q_count_text(used) + " of the mask's " + all + "; the others lie outside of '" +
         extraction.meta.record.mask + "'";
}

/// The voxels, and that they were chosen by the effects, where they were.
std::vector<Fact> facts_of_voxels(const Extraction& extraction) {
  std::vector<Fact> facts = {{"Voxels", voxels_text(extraction)}};
  if (!extraction.circularity.empty()) facts.push_back({"Circular", extraction.circularity});
  return facts;
}

/// What a report begins with.
std::vector<Fact> first_facts(const Extraction& extraction, std::size_t participants) {
  std::vector<Fact> facts = facts_of_voxels(extraction);
  facts.insert(facts.begin(),
               {"Studies", Q_counted(extraction.meta.members.size(), "study", "studies") +
                               " with " + Q_counted(participants, "participant", "participants")});
  return facts;
}

/// How the studies differ.
std::vector<Fact> differences_of(const StudiesPool& pooled) {
  const auto& [pool, intervals, small_studies] = pooled;
  std::vector<Fact> facts =
      heterogeneity_facts("Heterogeneity", pool.heterogeneity, intervals, pool.mean);
  if (pool.prediction)
    facts.insert(facts.begin(), {"95 % prediction interval", interval_text(*pool.prediction)});
  facts.push_back({"Small-study effects", small_study_text(small_studies)});
  return facts;
}

std::string method_of(const Extraction& extraction, const StudiesPool& pooled) {
  return method_text(Method::restricted_likelihood, extraction.studies.size(), pooled.pool.mean);
}

/// The rows of the studies, and what was extracted from whom.
ResultTable table_of(const Extraction& extraction,
                     const std::vector<std::vector<std::string>>& rows, std::size_t studies,
                     std::size_t participants) {
  ResultTable table(rows.front());
  for (const auto& row : std::span(rows).subspan(1)) table.row(row);
  table.value("mask", extraction.mask);
  table.value("mask_voxels", double(extraction.mask_voxels));
  table.value("used_voxels", double(extraction.used.size()));
  if (!extraction.circularity.empty()) table.value("circular", extraction.circularity);
  table.value("studies", double(studies));
  table.value("participants", double(participants));
  return table;
}

std::string text_file_of(const Extraction& extraction, const StudiesPool& pooled,
                         const std::vector<std::vector<std::string>>& rows) {
  ResultTable table =
      table_of(extraction, rows, extraction.studies.size(), participants_of(extraction.studies));
  const auto& [mean, heterogeneity, prediction, weights] = pooled.pool;
  table.value("method", method_of(extraction, pooled));
  table.value("g", mean.value);
  table.value("standard_error", mean.se);
  table.value(mean.df ? "t" : "z", mean.z);
  if (mean.df) table.value("t_df", *mean.df);
  table.value("p", mean.p);
  table.value("low_95", mean.interval.low);
  table.value("high_95", mean.interval.high);
  table.values(prediction);
  table.values(heterogeneity, pooled.intervals);
  table.values(pooled.small_studies);
  return table.text();
}

std::vector<Fact> facts_of(const Extraction& extraction, const StudiesPool& pooled) {
  std::vector<Fact> facts = first_facts(extraction, participants_of(extraction.studies));
  facts.push_back({"Method", method_of(extraction, pooled)});
  facts.push_back({"Pooled Hedges' g", estimate_text(pooled.pool.mean)});
  for (Fact& fact : differences_of(pooled)) facts.push_back(std::move(fact));
  return facts;
}

/// The end of a report: how the values came about. `pooled` is of the images; nothing where they
/// were not pooled.
std::string finish(HtmlReport& report, const Command& command, const Extraction& extraction,
                   std::size_t participants, const StudiesPool* pooled) {
  MapFacts known = facts_of_map("", all_verbs());
  known.methods.analysis = MethodsFacts::Analysis::extraction;
  known.methods.studies = extraction.meta.members.size();
  known.methods.participants = participants;
  known.methods.mask_of_extraction = extraction.mask;
  known.methods.estimated_from_peaks = has_peaks(extraction.meta);
  known.methods.restricted_likelihood = true;
  if (pooled) tell_methods(known.methods, *pooled);
  if (!known.studies.rows.empty()) {
    report.heading("Where the studies come from");
    report.table(known.studies);
  }
  report.heading("What was run");
  if (const std::string made = command_of_image(extraction.mask_path); !made.empty())
    known.commands.push_back(made);
  known.commands.push_back(command.text());
  report.commands(known.commands);
  report.facts(known.facts);
  report.methods(methods_of(known.methods));
  return report.finish();
}

std::string report_of(const Command& command, const Extraction& extraction,
                      const StudiesPool& pooled) {
  HtmlReport report("Values within the mask '" + extraction.mask + "'",
                    "One effect for each study: the mean of its map inside the mask");
  report.heading("Result");
  report.facts(facts_of(extraction, pooled));
  report.heading("Studies");
  report.table(effect_html(extraction.studies, pooled.pool.weights));
  add_pool_plots(report, extraction.studies, pooled);
  if (const auto without = leave_one_out(effects_of(extraction.studies)); !without.empty()) {
    report.heading("Leave-one-out");
    report.paragraph("The pooled effect of all studies but one.");
    report.table(leave_one_out_html(extraction.studies, without));
  }
  return finish(report, command, extraction, participants_of(extraction.studies), &pooled);
}

void write_files(Outputs& outputs, const Extraction& extraction, const std::string& text,
                 const std::vector<std::vector<std::string>>& rows, const std::string& html) {
  outputs.write_text(output_name(extraction.mask, ".txt"), text);
  outputs.write_text(output_name(extraction.mask, ".csv"), effect_csv(rows));
  outputs.write_text(output_name(extraction.mask, ".html"), html);
  outputs.commit();
}

void extract_images(Outputs& outputs, const Command& command, const Extraction& extraction) {
  const StudiesPool pooled = pool_studies(extraction.studies);
  const auto rows = effect_rows(extraction.studies, pooled.pool.weights);
  write_files(outputs, extraction, text_file_of(extraction, pooled, rows), rows,
              report_of(command, extraction, pooled));
  for (const Fact& fact : facts_of_voxels(extraction)) say(fact.label + ": " + fact.text);
  say("Pooled g: " + estimate_text(pooled.pool.mean));
  for (const Fact& fact : differences_of(pooled)) say(fact.label + ": " + fact.text);
}

/// The region where studies have peaks.
struct Region {
  std::vector<StudyInRegion> studies;
  RegionEstimate estimate;
  /// Of the images alone, if there are enough of them.
  std::optional<StudiesPool> images;
  std::size_t participants = 0;
};

Region region_of(const Extraction& extraction,
                 const std::vector<std::optional<Effect>>& of_images) {
  const MetaAnalysis& meta = extraction.meta;
  Region region;
  for (std::size_t s = 0; s < meta.members.size(); ++s) {
    const Member& member = meta.members[s];
    region.studies.push_back({member.study.name, member.study.sample, of_images[s],
                              peaks_nearby(member.peaks, extraction.used)});
    region.participants += participants_of(member.study.sample);
  }
  if (const auto images = with_images(region.studies); images.size() >= enough_images)
    region.images = pool_studies(images);
  region.estimate = estimate_region(meta, maps_of_images(meta), of_images, extraction.used);
  return region;
}

/// How the studies differ, as far as that is known.
std::vector<Fact> differences_of(const Region& region) {
  if (!region.images)
    return {{"Heterogeneity, prediction interval and small-study effects", withheld_text}};
  std::vector<Fact> facts = differences_of(*region.images);
  for (Fact& fact : facts)
    fact.text = "of the " + Q_counted(region.estimate.facts.images, "image", "images") +
                " alone: " + fact.text;
  return facts;
}

std::string text_file_of(const Extraction& extraction, const Region& region,
                         const std::vector<std::vector<std::string>>& rows) {
  ResultTable table = table_of(extraction, rows, region.studies.size(), region.participants);
  add_values(table, region.estimate);
  if (region.images) {
    table.value("heterogeneity", "of the images alone");
    table.values(region.images->pool.prediction);
    table.values(region.images->pool.heterogeneity, region.images->intervals);
    table.values(region.images->small_studies);
  } else {
    table.value("heterogeneity", withheld_text);
  }
  return table.text();
}

std::string report_of(const Command& command, const Extraction& extraction, const Region& region) {
  HtmlReport report("Effect within the mask '" + extraction.mask + "'",
                    "The mean over the mask's voxels, estimated from all that the studies know");
  report.heading("Result");
  std::vector<Fact> facts = first_facts(extraction, region.participants);
  facts.push_back({"Hedges' g of the region", estimate_text(region.estimate.estimate)});
  for (Fact& fact : differences_of(region)) facts.push_back(std::move(fact));
  for (Fact& fact : estimate_facts(region.estimate.facts)) facts.push_back(std::move(fact));
  report.facts(facts);
  add_region(report, region.studies, region.estimate);
  return finish(report, command, extraction, region.participants,
                region.images ? &*region.images : nullptr);
}

void extract_from_peaks(Outputs& outputs, const Command& command, const Extraction& extraction,
                        const std::vector<std::optional<Effect>>& of_images) {
  const Region region = region_of(extraction, of_images);
  const auto rows = region_rows(region.studies, region.estimate);
  write_files(outputs, extraction, text_file_of(extraction, region, rows), rows,
              report_of(command, extraction, region));
  for (const Fact& fact : facts_of_voxels(extraction)) say(fact.label + ": " + fact.text);
  say("Estimated g: " + estimate_text(region.estimate.estimate));
  for (const Fact& fact : differences_of(region)) say(fact.label + ": " + fact.text);
  for (const Fact& fact : estimate_facts(region.estimate.facts)) say(fact.label + ": " + fact.text);
}

}  // namespace

void check_extract(const Command& command) {
  prepare_extract(command);
}

void run_extract(const Command& command) {
  Outputs outputs;
  Extraction extraction = prepare_extract(command);
  extraction.circularity = circularity_of(extraction.used, extraction.mask_path);
  const std::vector<std::optional<Effect>> effects = effects_of_images(extraction);
  if (has_peaks(extraction.meta)) {
    extract_from_peaks(outputs, command, extraction, effects);
  } else {
    for (std::size_t s = 0; s < effects.size(); ++s) {
      const Study& study = extraction.meta.members[s].study;
      extraction.studies.push_back({study.name, study.sample, *effects[s]});
    }
    extract_images(outputs, command, extraction);
  }
  say("Report: " + output_name(extraction.mask, ".html"));
}

}  // namespace kvo::verbs
