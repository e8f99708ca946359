#include "engine/results/effect_summary.h"

#include <cmath>

#include "engine/base/csv.h"
#include "engine/base/wording.h"
#include "engine/studies/effect_size.h"
#include "util/q_string.h"
#include "util/text.h"

namespace kvo::results {

namespace {

std::string quoted_for_file(const std::string& text) {
  return text.find_first_of("#\"") == std::string::npos ? text : in_quotes(text);
}

}  // namespace

Interval interval_of(const Effect& effect) {
  const double half = interval_z * std::sqrt(effect.variance);
  return {effect.g - half, effect.g + half};
}

std::size_t participants_of(std::span<const StudyEffect> studies) {
  std::size_t participants = 0;
  for (const StudyEffect& study : studies) participants += participants_of(study.sample);
  return participants;
}

std::vector<Effect> effects_of(std::span<const StudyEffect> studies) {
  std::vector<Effect> effects;
  effects.reserve(studies.size());
  for (const StudyEffect& study : studies) effects.push_back(study.effect);
  return effects;
}

StudiesPool pool_studies(std::span<const StudyEffect> studies, Method method) {
  const std::vector<Effect> effects = effects_of(studies);
  std::vector<double> errors_by_size;
  errors_by_size.reserve(studies.size());
  for (const StudyEffect& study : studies) errors_by_size.push_back(error_by_size(study.sample));
  return {pool_effects(effects, method),
          intervals_of_effects(make_design({}, effects.size()), effects),
          small_study_test(effects, errors_by_size, method)};
}

std::string interval_text(const Interval& interval) {
  return decimal_text(interval.low, 3) + " to " + decimal_text(interval.high, 3);
}

std::string estimate_text(const Estimate& estimate) {
  std::string test = (estimate.df ? "t = " : "z = ") + decimal_text(estimate.z, 2);
  if (estimate.df) test += " (df = " + decimal_text(*estimate.df, 0) + ")";
  return decimal_text(estimate.value, 3) + " (95 % interval " + interval_text(estimate.interval) +
         "), " + test + ", " + p_phrase(estimate.p);
}

std::string heterogeneity_text(const Heterogeneity& heterogeneity) {
  if (heterogeneity.df == 0) return "not to be measured with a single study";
  return "Q = " + decimal_text(heterogeneity.Q, 2) + " (df = " + std::to_string(heterogeneity.df) +
         ", " + p_phrase(heterogeneity.p) + "), I² = " + decimal_text(heterogeneity.I2, 1) +
         " %, H² = " + decimal_text(heterogeneity.H2, 2) +
         ", τ² = " + decimal_text(heterogeneity.tau2, 4);
}

std::string intervals_text(const Heterogeneity& heterogeneity,
                           const std::optional<ScaleIntervals>& intervals) {
  if (heterogeneity.df == 0) return heterogeneity_text(heterogeneity);
  if (!intervals) return "none, as the effects scatter less than any τ² lets expect";
  const auto& [low, high] = *intervals;
  return "τ² " + decimal_text(low.tau2, 4) + " to " + decimal_text(high.tau2, 4) + ", I² " +
         decimal_text(low.I2, 1) + " to " + decimal_text(high.I2, 1) + " %, H² " +
         decimal_text(low.H2, 2) + " to " + decimal_text(high.H2, 2);
}

std::string small_study_text(const SmallStudyOutcome& outcome) {
  if (!outcome.test) return "not possible, as " + outcome.why_not;
  return "slope " + estimate_text(outcome.test->slope);
}

std::string method_text(Method method, std::size_t studies, const Estimate& estimate) {
  const std::string normal = "intervals and tests by the normal distribution";
  if (studies == 1)
    return "none is needed for a single study; interval and test by the normal distribution from "
           "its own variance";
  if (method == Method::moments)
    return "DL: τ² by the method of moments (DerSimonian and Laird), " + normal;
  if (!estimate.df)
    return "REML: τ² by restricted maximum likelihood; " + normal +
           ", as nothing scatters that Hartung and Knapp's could come from";
  return "REML: τ² by restricted maximum likelihood, intervals and tests by Hartung and Knapp";
}

std::vector<Fact> heterogeneity_facts(const char* label, const Heterogeneity& heterogeneity,
                                      const std::optional<ScaleIntervals>& intervals,
                                      const Estimate& estimate) {
  std::vector<Fact> facts = {{label, heterogeneity_text(heterogeneity)}};
  if (heterogeneity.df > 0)
    facts.push_back({"95 % intervals by the Q profile", intervals_text(heterogeneity, intervals)});
  if (estimate.df && heterogeneity.tau2 == 0 && heterogeneity.Q < double(heterogeneity.df))
    facts.push_back(
        {"Note",
         "the effects scatter less than their variances let expect, which makes Hartung "
         "and Knapp's intervals narrower than those of the variances alone"});
  return facts;
}

std::string file_number(double value) {
  return Q_format("%.10g", value).str();
}

void ResultTable::row(std::span<const std::string> cells) {
  for (const std::string& cell : cells) {
    if (&cell != cells.data()) text_ += '\t';
    text_ += quoted_for_file(cell);
  }
  text_ += '\n';
}

void ResultTable::value(std::string_view key, std::string_view text) {
  text_.append("# ").append(key).append(" = ").append(text).append("\n");
}

void ResultTable::values(const Heterogeneity& heterogeneity,
                         const std::optional<ScaleIntervals>& intervals) {
  if (heterogeneity.df == 0) return value("heterogeneity", heterogeneity_text(heterogeneity));
  value("Q", heterogeneity.Q);
  value("Q_df", double(heterogeneity.df));
  value("Q_p", heterogeneity.p);
  value("I2", heterogeneity.I2);
  value("H2", heterogeneity.H2);
  value("tau2", heterogeneity.tau2);
  if (!intervals) return value("intervals", intervals_text(heterogeneity, intervals));
  for (const auto& [ending, scales] :
       {std::pair("_low_95", intervals->low), std::pair("_high_95", intervals->high)}) {
    value(std::string("tau2") + ending, scales.tau2);
    value(std::string("I2") + ending, scales.I2);
    value(std::string("H2") + ending, scales.H2);
  }
}

void ResultTable::values(const SmallStudyOutcome& outcome) {
  if (!outcome.test) return value("small_study", small_study_text(outcome));
  const auto& [slope, intercept] = *outcome.test;
  value("small_study_slope", slope.value);
  value("small_study_standard_error", slope.se);
  value(slope.df ? "small_study_t" : "small_study_z", slope.z);
  if (slope.df) value("small_study_df", *slope.df);
  value("small_study_p", slope.p);
  value("small_study_low_95", slope.interval.low);
  value("small_study_high_95", slope.interval.high);
  value("small_study_intercept", intercept.value);
}

void ResultTable::values(const std::optional<Interval>& prediction) {
  if (!prediction) return;
  value("prediction_low_95", prediction->low);
  value("prediction_high_95", prediction->high);
}

std::vector<std::vector<std::string>> effect_rows(std::span<const StudyEffect> studies,
                                                  std::span<const double> weights) {
  std::vector<std::vector<std::string>> rows = {
      {"study", "n", "g", "variance", "standard_error", "weight"}};
  for (std::size_t i = 0; i < studies.size(); ++i) {
    const auto& [study, sample, effect] = studies[i];
    rows.push_back({study, std::to_string(participants_of(sample)), file_number(effect.g),
                    file_number(effect.variance), file_number(std::sqrt(effect.variance)),
                    file_number(weights[i])});
  }
  return rows;
}

std::string effect_csv(std::span<const std::vector<std::string>> rows) {
  std::string csv;
  for (const std::vector<std::string>& row : rows) csv += csv_line(row);
  return csv;
}

HtmlTable effect_html(std::span<const StudyEffect> studies, std::span<const double> weights) {
  HtmlTable table;
  table.columns = {{"Study"},           {"n", true},
                   {"Hedges' g", true}, {"95 % interval", true},
                   {"Variance", true},  {"Standard error", true},
                   {"Weight (%)", true}};
  for (std::size_t i = 0; i < studies.size(); ++i) {
    const auto& [study, sample, effect] = studies[i];
    table.rows.push_back(
        {{study, Q_count_text(participants_of(sample)), decimal_text(effect.g, 3),
          interval_text(interval_of(effect)), decimal_text(effect.variance, 4),
          decimal_text(std::sqrt(effect.variance), 3), decimal_text(weights[i], 2)}});
  }
  return table;
}

HtmlTable leave_one_out_html(std::span<const StudyEffect> studies,
                             std::span<const PooledEffect> pools) {
  HtmlTable table;
  table.columns = {{"Left out"}, {"Hedges' g", true}, {"95 % interval", true},
                   {"p", true},  {"Q", true},         {"I² (%)", true},
                   {"τ²", true}};
  for (std::size_t i = 0; i < pools.size(); ++i) {
    const auto& [mean, heterogeneity, prediction, weights] = pools[i];
    std::vector<std::string> cells = {studies[i].study, decimal_text(mean.value, 3),
                                      interval_text(mean.interval), p_text(mean.p)};
    if (heterogeneity.df == 0)
      cells.insert(cells.end(), 3, "–");
    else
      cells.insert(cells.end(),
                   {decimal_text(heterogeneity.Q, 2), decimal_text(heterogeneity.I2, 1),
                    decimal_text(heterogeneity.tau2, 4)});
    table.rows.push_back({std::move(cells)});
  }
  return table;
}

ForestPlot forest_of(std::span<const StudyEffect> studies, std::span<const double> weights) {
  ForestPlot plot;
  for (std::size_t i = 0; i < studies.size(); ++i) {
    const auto& [study, sample, effect] = studies[i];
    plot.rows.push_back(
        {study, participants_of(sample), effect.g, interval_of(effect), weights[i]});
  }
  return plot;
}

void add_pool_plots(HtmlReport& report, std::span<const StudyEffect> studies,
                    const StudiesPool& pooled) {
  const auto& [pool, intervals, small_studies] = pooled;
  ForestPlot forest = forest_of(studies, pool.weights);
  forest.pooled = pool.mean.value;
  forest.pooled_interval = pool.mean.interval;
  forest.prediction = pool.prediction;
  forest.heterogeneity = heterogeneity_text(pool.heterogeneity);
  report.heading("Forest plot");
  for (const Picture& picture : forest_plot(forest))
    report.picture(picture,
                   "Hedges' g with its 95 % interval; squares by weight, the diamond is the pooled "
                   "effect.");
  FunnelPlot funnel;
  for (const auto& [study, sample, effect] : studies)
    funnel.points.push_back({study, effect.g, std::sqrt(effect.variance)});
  funnel.pooled = pool.mean.value;
  funnel.note = "Small-study effects: " + small_study_text(small_studies);
  report.heading("Funnel plot");
  report.picture(funnel_plot(funnel),
                 "Effects against their standard errors, with the pooled effect ± 1.96 standard "
                 "errors.");
  std::string paragraph =
      "Test for small-study effects (random-effects regression of the effect on the standard error "
      "that the sample sizes alone let expect): " +
      small_study_text(small_studies) + ".";
  if (small_studies.test)
    paragraph += " The effect that it expects of a study of unlimited size is " +
                 decimal_text(small_studies.test->intercept.value, 3) + " (95 % interval " +
                 interval_text(small_studies.test->intercept.interval) + ").";
  report.paragraph(paragraph);
}

void tell_methods(MethodsFacts& facts, const StudiesPool& pooled) {
  facts.hartung_knapp = pooled.pool.mean.df.has_value();
  facts.prediction_interval = pooled.pool.prediction.has_value();
  facts.small_study_test = pooled.small_studies.test.has_value();
}

}  // namespace kvo::results
