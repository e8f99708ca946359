#include "engine/results/region_summary.h"

#include <algorithm>
#include <cmath>

#include "engine/base/text_file.h"
#include "engine/base/wording.h"
#include "util/text.h"

namespace kvo::results {

namespace {

constexpr const char* missing = "NA";

/// "2 peaks nearby, g up to 0.83", or the words that stand for no peak.
std::string listed_text(const PeaksNearby& peaks, bool tells_inside) {
  if (peaks.nearby == 0) return "nothing listed here";
  std::string text = Q_counted(peaks.nearby, "peak", "peaks") +
                     (peaks.inside == peaks.nearby ? " inside" : " nearby");
  if (tells_inside && peaks.inside > 0 && peaks.inside < peaks.nearby)
    text += ", " + Q_count_text(peaks.inside) + " of them inside";
  if (!peaks.highest->height_known) return text + ", of unknown height";
  const double g = peaks.highest->g;
  const char* toward = peaks.nearby == 1 ? "g " : g < 0 ? "g down to " : "g up to ";
  return text + ", " + toward + decimal_text(g, 2);
}

/// The table and the file name an assumption in the same way.
struct Assumption {
  std::string words, key;
};

Assumption assumption_of(const Sensitivity& sensitivity) {
  const std::string value = decimals_of(sensitivity.value);
  switch (sensitivity.of) {
    case Sensitivity::Of::threshold:
      return {"One-tailed p < " + value + " as the threshold where the table states none",
              "threshold_p_" + value};
    case Sensitivity::Of::share:
      return {"Listed shares × " + value, "listed_share_times_" + value};
    case Sensitivity::Of::smoothness:
      break;
  }
  return {"Smoothness of the studies’ maps × " + value, "smoothness_times_" + value};
}

HtmlTable studies_html(std::span<const StudyInRegion> studies, const RegionEstimate& estimate) {
  HtmlTable table;
  table.columns = {{"Study"}, {"n", true}, {"What is known here"}};
  // A table of peaks alone would have empty columns.
  const bool has_images = estimate.facts.images > 0;
  if (has_images)
    for (const char* title : {"Hedges' g", "95 % interval", "Standard error", "Weight (%)"})
      table.columns.push_back({title, true});
  for (std::size_t s = 0; s < studies.size(); ++s) {
    const auto& [study, sample, effect, peaks] = studies[s];
    HtmlRow row{{study, Q_count_text(participants_of(sample)), known_text(studies[s])}};
    if (has_images && effect)
      row.cells.insert(row.cells.end(),
                       {decimal_text(effect->g, 3), interval_text(interval_of(*effect)),
                        decimal_text(std::sqrt(effect->variance), 3),
                        decimal_text(estimate.weights[s].value_or(0), 2)});
    row.cells.resize(table.columns.size());
    table.rows.push_back(std::move(row));
  }
  return table;
}

std::string studies_note(const RegionEstimate& estimate) {
  std::string text = "Peaks are listed here when they lie in the region or within " +
                     std::to_string(nearby_mm) +
                     " mm of it. Their heights are the highest places of a study’s map, not its "
                     "mean over the region, and so they stand for no effect of the study.";
  if (estimate.facts.images == 0) return text;
  double weights = 0;
  for (const std::optional<double>& weight : estimate.weights) weights += weight.value_or(0);
  return text +
         " The studies with peaks have no weight each; together, and with what was assumed "
         "before anything is known, they weigh " +
         decimal_text(std::max(0.0, 100 - weights), 2) + " %.";
}

ForestPlot forest_of(std::span<const StudyInRegion> studies, const RegionEstimate& estimate) {
  ForestPlot plot;
  for (std::size_t s = 0; s < studies.size(); ++s) {
    const auto& [study, sample, effect, peaks] = studies[s];
    if (effect) {
      plot.rows.push_back({study, participants_of(sample), effect->g, interval_of(*effect),
                           estimate.weights[s].value_or(0)});
      continue;
    }
    ForestRow row{study, participants_of(sample), 0, {}, 0, listed_text(peaks, false)};
    if (peaks.highest && peaks.highest->height_known) row.mark = peaks.highest->g;
    plot.rows.push_back(std::move(row));
  }
  plot.pooled = estimate.estimate.value;
  plot.pooled_interval = estimate.estimate.interval;
  return plot;
}

HtmlRow estimate_row(std::string what, const Estimate& estimate) {
  return {{std::move(what), decimal_text(estimate.value, 3), interval_text(estimate.interval),
           decimal_text(estimate.z, 2), p_text(estimate.p)}};
}

HtmlTable estimates_html(const char* title) {
  HtmlTable table;
  table.columns = {{title}, {"Hedges' g", true}, {"95 % interval", true}, {"z", true}, {"p", true}};
  return table;
}

void add_curve(HtmlReport& report, const RegionEstimate& estimate) {
  DensityPlot plot;
  for (const CurvePoint& point : estimate.curve) plot.points.push_back({point.g, point.density});
  plot.estimate = estimate.estimate.value;
  plot.interval = estimate.estimate.interval;
  report.heading("How likely each effect is");
  report.picture(
      density_plot(plot),
      "Posterior density of the region’s effect, relative to the highest: its profile, which is "
      "for "
      "each effect the highest that the posterior gets with it and the listed shares found, "
      "widened "
      "by the doubt about what is listed. Dashed: the normal density that the estimate (line) and "
      "the 95 % interval (shaded) are taken from.");
}

void add_sensitivity(HtmlReport& report, const RegionEstimate& estimate) {
  report.heading("Sensitivity");
  std::string text =
      "The estimate under other assumptions than those that were made. Listed shares are found "
      "anew "
      "under each, except where they are given as so many times those found. The smoothness of the "
      "maps sets how many maxima there are, and so which share is listed: that moves the doubt "
      "about what is listed and the interval rather than the estimate.";
  if (estimate.facts.thresholds_assumed == 0)
    text += " The table states the threshold of every study with peaks, so there is none to vary.";
  else
    text += " A study that lists peaks below such a threshold has that of its lowest peak.";
  report.paragraph(text);
  HtmlTable table = estimates_html("Assumption");
  table.rows.push_back(estimate_row("As estimated", estimate.estimate));
  for (const Sensitivity& sensitivity : estimate.sensitivity)
    table.rows.push_back(estimate_row(assumption_of(sensitivity).words, sensitivity.estimate));
  report.table(table);
}

void add_leave_one_out(HtmlReport& report, std::span<const StudyInRegion> studies,
                       const RegionEstimate& estimate) {
  if (studies.size() < 2) return;
  report.heading("Leave-one-out");
  if (estimate.without.empty())
    return report.paragraph("Not made, as there are more than " + std::to_string(most_left_out) +
                            " studies.");
  report.paragraph("The effect of all studies but one, under the assumptions chosen for all.");
  HtmlTable table = estimates_html("Left out");
  for (std::size_t s = 0; s < studies.size(); ++s)
    table.rows.push_back(estimate_row(studies[s].study, estimate.without[s]));
  report.table(table);
}

}  // namespace

std::string known_text(const StudyInRegion& study) {
  if (study.effect) return "image";
  std::string text = listed_text(study.peaks, true);
  if (!study.peaks.highest) return text;
  const Eigen::Vector3d& mm = study.peaks.highest->mm;
  return text + " at " + std::to_string(std::lround(mm[0])) + "," +
         std::to_string(std::lround(mm[1])) + "," + std::to_string(std::lround(mm[2]));
}

std::vector<StudyEffect> with_images(std::span<const StudyInRegion> studies) {
  std::vector<StudyEffect> effects;
  for (const auto& [study, sample, effect, peaks] : studies)
    if (effect) effects.push_back({study, sample, *effect});
  return effects;
}

std::vector<std::vector<std::string>> region_rows(std::span<const StudyInRegion> studies,
                                                  const RegionEstimate& estimate) {
  std::vector<std::vector<std::string>> rows = {
      {"study", "n", "g", "variance", "standard_error", "weight", "peaks_inside", "peaks_nearby",
       "highest_g", "highest_x", "highest_y", "highest_z", "known"}};
  for (std::size_t s = 0; s < studies.size(); ++s) {
    const auto& [study, sample, effect, peaks] = studies[s];
    std::vector<std::string> row = {study, std::to_string(participants_of(sample))};
    if (effect) {
      for (const double value : {effect->g, effect->variance, std::sqrt(effect->variance),
                                 estimate.weights[s].value_or(0)})
        row.push_back(file_number(value));
      row.resize(row.size() + 6, missing);
    } else {
      row.resize(row.size() + 4, missing);
      row.push_back(std::to_string(peaks.inside));
      row.push_back(std::to_string(peaks.nearby));
      row.push_back(peaks.highest && peaks.highest->height_known ? file_number(peaks.highest->g)
                                                                 : missing);
      for (Eigen::Index axis = 0; axis < 3; ++axis)
        row.push_back(peaks.highest ? file_number(peaks.highest->mm[axis]) : missing);
    }
    row.push_back(known_text(studies[s]));
    rows.push_back(std::move(row));
  }
  return rows;
}

void add_values(ResultTable& table, const RegionEstimate& estimate) {
  const auto add = [&](const std::string& before, const Estimate& one) {
    table.value(before + "g", one.value);
    table.value(before + "standard_error", one.se);
    table.value(before + "z", one.z);
    table.value(before + "p", one.p);
    table.value(before + "low_95", one.interval.low);
    table.value(before + "high_95", one.interval.high);
  };
  add("", estimate.estimate);
  table.value("studies_with_peaks", double(estimate.facts.studies_with_peaks));
  table.value("images", double(estimate.facts.images));
  table.value("assumed_tau2", estimate.facts.chosen.assumptions.tau2);
  table.value("listing_doubt", estimate.facts.listing_doubt);
  for (const Sensitivity& sensitivity : estimate.sensitivity)
    add(assumption_of(sensitivity).key + "_", sensitivity.estimate);
}

void add_region(HtmlReport& report, std::span<const StudyInRegion> studies,
                const RegionEstimate& estimate) {
  report.heading("Studies");
  report.table(studies_html(studies, estimate));
  report.paragraph(studies_note(estimate));
  report.heading("Forest plot");
  std::string caption =
      "The diamond is the estimate of the region. A hollow mark is the highest peak that a study "
      "lists in or near the region; it is no estimate of the study’s effect there.";
  if (estimate.facts.images > 0)
    caption += " Studies with images have Hedges' g with its 95 % interval, squares by weight.";
  for (const Picture& picture : forest_plot(forest_of(studies, estimate)))
    report.picture(picture, caption);
  add_curve(report, estimate);
  add_sensitivity(report, estimate);
  add_leave_one_out(report, studies, estimate);
}

}  // namespace kvo::results
