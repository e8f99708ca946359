// The studies' global values: a random-effects model of one effect a study, from means and standard
// deviations in the study table.

#include <algorithm>
#include <cmath>

#include "engine/base/outputs.h"
#include "engine/base/progress.h"
#include "engine/base/refusal.h"
#include "engine/base/text_file.h"
#include "engine/base/wording.h"
#include "engine/model/study_model.h"
#include "engine/report/methods.h"
#include "engine/results/effect_summary.h"
#include "engine/results/study_list.h"
#include "engine/verbs/verbs.h"
#include "util/text.h"
#include "workspace/files/file_names.h"

namespace kvo::verbs {

namespace {

struct Globals {
  Model values;  ///< the variables that make an effect, and the studies without all of them
  Model model;
  Method method = Method::restricted_likelihood;
  std::vector<StudyEffect> studies;  ///< those of the model
  std::size_t filtered = 0, all = 0;
  HtmlTable list;  ///< of those studies, with what identifies them
};

struct GlobalsFit {
  ModelFit fit;
  std::optional<ScaleIntervals> intervals;
  std::vector<double> weights;
  std::optional<StudiesPool> pooled;  ///< of a model without terms
  std::optional<double> R2;  ///< share of the heterogeneity that the terms explain, in percent
};

double standard_deviation(const StudyTable& table, const Study& study, const char* name) {
  const std::size_t column = *table.column(name);
  const double sd = study_number(table, study, column).value();
  if (sd > 0) return sd;
  throw Refusal(at_line(KVO_TABLE_FILE, study.line) + name + " of study '" + study.name + "' is '" +
                study.values[column] + "', not a number above 0.");
}

Effect effect_of(const StudyTable& table, const Study& study, bool two_samples) {
  const auto mean = [&](const char* name) {
    return study_number(table, study, *table.column(name)).value();
  };
  const double n1 = study.sample.n1, n2 = study.sample.n2;
  const double sd1 = standard_deviation(table, study, "sd1");
  double t = mean("mean1") / sd1 * std::sqrt(n1);
  if (two_samples) {
    const double sd2 = standard_deviation(table, study, "sd2");
    const double pooled_sd =
        std::sqrt(((n1 - 1) * sd1 * sd1 + (n2 - 1) * sd2 * sd2) / (n1 + n2 - 2));
    t = (mean("mean1") - mean("mean2")) / pooled_sd / std::sqrt(1 / n1 + 1 / n2);
  }
  if (!(std::abs(t) <= max_t))
    throw Refusal(at_line(KVO_TABLE_FILE, study.line) + "the means and standard deviations of '" +
                  study.name + "' give no effect size: as a t value it would be beyond " +
                  text_of(max_t) + ".");
  const double g = hedges_g(t, study.sample);
  return {g, variance_of_g(study.sample).at(g)};
}

/// The studies that have all the variables; the names of the others are kept too.
Model complete_studies(const StudyTable& table, std::span<const std::size_t> chosen,
                       bool two_samples) {
  Model values;
  values.terms = {"mean1", "sd1"};
  if (two_samples) values.terms.insert(values.terms.end(), {"mean2", "sd2", "n2"});
  std::vector<std::size_t> columns;
  for (const std::string& name : values.terms) columns.push_back(required_column(table, name));
  for (const std::size_t i : chosen) {
    const Study& study = table.studies[i];
    const bool complete = std::all_of(columns.begin(), columns.end(), [&](std::size_t column) {
      return study_number(table, study, column).has_value();
    });
    if (complete)
      values.studies.push_back(i);
    else
      values.incomplete.push_back(study.name);
  }
  if (values.studies.empty())
    throw Refusal(std::string("No study has a value of each of ") +
                  (two_samples ? "mean1, sd1, mean2, sd2 and n2." : "mean1 and sd1."));
  return values;
}

Globals prepare_globals(const Command& command) {
  const StudyTable table = read_study_table();
  const std::vector<std::size_t> chosen = filtered_studies(table, command.arguments[1]);
  Globals globals;
  if (!command.arguments[2].empty()) globals.method = Method::moments;
  globals.all = table.studies.size();
  globals.filtered = table.studies.size() - chosen.size();
  // A mean cannot be pooled with differences of means: one study with two samples makes all that.
  const bool two_samples = std::any_of(
      chosen.begin(), chosen.end(), [&](std::size_t i) { return table.studies[i].sample.n2 > 0; });
  globals.values = complete_studies(table, chosen, two_samples);
  globals.model = read_model(table, command.arguments[0], globals.values.studies);
  for (const std::size_t i : globals.model.studies) {
    const Study& study = table.studies[i];
    globals.studies.push_back({study.name, study.sample, effect_of(table, study, two_samples)});
  }
  globals.list = study_list(
      table, globals.model.studies,
      std::vector<StudyData>(
          globals.studies.size(),
          {two_samples ? "means and standard deviations" : "mean and standard deviation", ""}));
  return globals;
}

GlobalsFit fit_of(const Globals& globals) {
  const std::vector<Effect> effects = effects_of(globals.studies);
  GlobalsFit result;
  result.fit = fit_effects(globals.model.design, effects, globals.method);
  result.intervals = intervals_of_effects(globals.model.design, effects);
  result.weights = weights_of(effects, result.fit.residual.tau2);
  if (globals.model.terms.empty()) {
    result.pooled = pool_studies(globals.studies, globals.method);
  } else {
    const double tau2 = pool_effects(effects, globals.method).heterogeneity.tau2;
    if (tau2 > 0) result.R2 = std::max(0.0, 100 * (1 - result.fit.residual.tau2 / tau2));
  }
  return result;
}

std::string term_name(const Globals& globals, std::size_t coefficient) {
  return coefficient == 0 ? "intercept" : globals.model.terms[coefficient - 1];
}

std::string model_text(const Globals& globals) {
  std::string text = "Y = 1";
  for (const std::string& term : globals.model.terms) text += " + " + term;
  return text;
}

/// The degrees of freedom of t and F; none where tests are by the normal distribution.
std::optional<double> t_df(const ModelFit& fit) {
  return fit.coefficients.front().df;
}

std::string terms_test_text(const ModelFit& fit) {
  const std::optional<double> df = t_df(fit);
  return (df ? "F = " : "QM = ") + decimal_text(fit.QM, 2) +
         " (df = " + decimal_text(fit.QM_df, 0) + (df ? " and " + decimal_text(*df, 0) : "") +
         ", " + p_phrase(fit.QM_p) + ")";
}

std::vector<Fact> facts_of(const Command& command, const Globals& globals,
                           const GlobalsFit& result) {
  std::vector<Fact> facts = {{"Model", model_text(globals)},
                             {"Method", method_text(globals.method, globals.studies.size(),
                                                    result.fit.coefficients.front())}};
  if (!command.arguments[1].empty()) facts.push_back({"Subgroup", command.arguments[1]});
  facts.push_back(
      {"Studies", Q_counted(globals.studies.size(), "study", "studies") + " with " +
                      Q_counted(participants_of(globals.studies), "participant", "participants")});
  if (const auto& pooled = result.pooled; pooled && pooled->pool.prediction)
    facts.push_back({"95 % prediction interval", interval_text(*pooled->pool.prediction)});
  for (Fact& fact : heterogeneity_facts(
           globals.model.terms.empty() ? "Heterogeneity" : "Residual heterogeneity",
           heterogeneity_of(result.fit), result.intervals, result.fit.coefficients.front()))
    facts.push_back(std::move(fact));
  if (!globals.model.terms.empty())
    facts.push_back({"Test of all terms", terms_test_text(result.fit)});
  if (result.R2)
    facts.push_back({"Explained heterogeneity", "R² = " + decimal_text(*result.R2, 1) + " %"});
  if (result.pooled)
    facts.push_back({"Small-study effects", small_study_text(result.pooled->small_studies)});
  return facts;
}

HtmlTable coefficients_html(const Globals& globals, const ModelFit& fit) {
  HtmlTable table;
  table.columns = {{"Term"},
                   {"Estimate", true},
                   {"Standard error", true},
                   {t_df(fit) ? "t (df = " + decimal_text(*t_df(fit), 0) + ")" : "z", true},
                   {"p", true},
                   {"95 % interval", true}};
  for (std::size_t i = 0; i < fit.coefficients.size(); ++i) {
    const Estimate& estimate = fit.coefficients[i];
    table.rows.push_back(
        {{term_name(globals, i), decimal_text(estimate.value, 4), decimal_text(estimate.se, 4),
          decimal_text(estimate.z, 2), p_text(estimate.p),
          decimal_text(estimate.interval.low, 4) + " to " +
              decimal_text(estimate.interval.high, 4)}});
  }
  return table;
}

std::string text_file_of(const Globals& globals, const GlobalsFit& result) {
  const ModelFit& fit = result.fit;
  ResultTable table(std::vector<std::string>{"term", "estimate", "standard_error",
                                             t_df(fit) ? "t" : "z", "p", "low_95", "high_95"});
  for (std::size_t i = 0; i < fit.coefficients.size(); ++i) {
    const auto& [value, se, z, p, interval, df] = fit.coefficients[i];
    table.row(std::vector{term_name(globals, i), file_number(value), file_number(se),
                          file_number(z), file_number(p), file_number(interval.low),
                          file_number(interval.high)});
  }
  table.value("model", model_text(globals));
  table.value("method",
              method_text(globals.method, globals.studies.size(), fit.coefficients.front()));
  if (t_df(fit)) table.value("t_df", *t_df(fit));
  table.value("studies", double(globals.studies.size()));
  table.value("participants", double(participants_of(globals.studies)));
  table.values(heterogeneity_of(fit), result.intervals);
  if (!globals.model.terms.empty()) {
    table.value(t_df(fit) ? "F" : "QM", fit.QM);
    table.value(t_df(fit) ? "F_df" : "QM_df", fit.QM_df);
    table.value(t_df(fit) ? "F_p" : "QM_p", fit.QM_p);
  }
  if (result.R2) table.value("R2", *result.R2);
  if (const auto& pooled = result.pooled) {
    table.values(pooled->pool.prediction);
    table.values(pooled->small_studies);
  }
  return table.text();
}

Methods methods_of(const Command& command, const Globals& globals, const GlobalsFit& result) {
  MethodsFacts facts;
  facts.analysis = MethodsFacts::Analysis::globals;
  facts.studies = globals.studies.size();
  facts.participants = participants_of(globals.studies);
  facts.subgroup = command.arguments[1];
  facts.variables = globals.model.terms;
  facts.restricted_likelihood = globals.method == Method::restricted_likelihood;
  facts.hartung_knapp = t_df(result.fit).has_value();
  if (result.pooled) tell_methods(facts, *result.pooled);
  return methods_of(facts);
}

std::string report_of(const Command& command, const Globals& globals, const GlobalsFit& result) {
  HtmlReport report("Global values: " + command.name, model_text(globals));
  report.heading("Result");
  report.facts(facts_of(command, globals, result));
  report.table(coefficients_html(globals, result.fit));
  report.heading("Studies");
  report.table(effect_html(globals.studies, result.weights));
  if (result.pooled) {
    add_pool_plots(report, globals.studies, *result.pooled);
  } else {
    ForestPlot forest = forest_of(globals.studies, result.weights);
    forest.heterogeneity = "Residual: " + heterogeneity_text(heterogeneity_of(result.fit));
    report.heading("Forest plot");
    for (const Picture& picture : forest_plot(forest))
      report.picture(picture, "Hedges' g with its 95 % interval; squares by weight.");
  }
  report.heading("Where the studies come from");
  report.table(globals.list);
  report.heading("What was run");
  report.commands(std::vector{command.text()});
  report.methods(methods_of(command, globals, result));
  return report.finish();
}

void say_result(const Command& command, const Globals& globals, const GlobalsFit& result) {
  for (std::size_t i = 0; i < result.fit.coefficients.size(); ++i)
    say(term_name(globals, i) + ": " + estimate_text(result.fit.coefficients[i]));
  const std::vector<Fact> facts = facts_of(command, globals, result);
  for (const Fact& fact : facts) say(fact.label + ": " + fact.text);
}

}  // namespace

void check_globals(const Command& command) {
  prepare_globals(command);
}

void run_globals(const Command& command) {
  Outputs outputs;
  const Globals globals = prepare_globals(command);
  say_filtered(globals.filtered, globals.all);
  say_incomplete(globals.values);
  say_incomplete(globals.model);
  const GlobalsFit result = fit_of(globals);
  const std::string base = command.name + "_globals";
  outputs.write_text(base + ".txt", text_file_of(globals, result));
  outputs.write_text(base + ".csv", effect_csv(effect_rows(globals.studies, result.weights)));
  outputs.write_text(base + ".html", report_of(command, globals, result));
  outputs.commit();
  say_result(command, globals, result);
  say("Report: " + base + ".html");
}

}  // namespace kvo::verbs
