#pragma once

// What an analysis of one effect a study has to say, as lines of text, tables and plots.

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "engine/model/random_effects.h"
#include "engine/report/html.h"
#include "engine/report/methods.h"
#include "engine/report/plots.h"
#include "engine/results/results_layer.h"
#include "engine/studies/study.h"

namespace kvo::results {

struct StudyEffect {
  std::string study;
  Sample sample;
  Effect effect;
};

std::size_t participants_of(std::span<const StudyEffect> studies);
std::vector<Effect> effects_of(std::span<const StudyEffect> studies);

/// The random-effects mean of the studies, and what goes with it.
struct StudiesPool {
  PooledEffect pool;
  std::optional<ScaleIntervals> intervals;
  SmallStudyOutcome small_studies;
};
StudiesPool pool_studies(std::span<const StudyEffect> studies,
                         Method method = Method::restricted_likelihood);

/// "0.102 to 0.326".
std::string interval_text(const Interval& interval);
/// The 95 % interval of a study's effect.
Interval interval_of(const Effect& effect);
/// "0.214 (95 % interval 0.102 to 0.326), z = 3.75, p = 0.00018"; of t, "t = 3.75 (df = 20), p =
/// …".
std::string estimate_text(const Estimate& estimate);
/// "Q = 12.30 (df = 20, p = 0.905), I² = 0.0 %, H² = 1.00, τ² = 0.0000".
std::string heterogeneity_text(const Heterogeneity& heterogeneity);
/// "τ² 0.0021 to 0.1304, I² 12.1 to 90.1 %, H² 1.14 to 10.10", or why there is none.
std::string intervals_text(const Heterogeneity& heterogeneity,
                           const std::optional<ScaleIntervals>& intervals);
/// "slope 1.21 (95 % interval 0.11 to 2.31), t = 2.30 (df = 19), p = 0.033", or why there is no
/// test.
std::string small_study_text(const SmallStudyOutcome& outcome);
/// How τ² was estimated of so many studies and an estimate of their model was tested.
std::string method_text(Method method, std::size_t studies, const Estimate& estimate);
/// Heterogeneity under this label and its intervals; a note where the scatter that the intervals of
/// the estimate rest on is smaller than the studies' own variances.
std::vector<Fact> heterogeneity_facts(const char* label, const Heterogeneity& heterogeneity,
                                      const std::optional<ScaleIntervals>& intervals,
                                      const Estimate& estimate);

/// A number of a file: ten digits.
std::string file_number(double value);

/// A table as text that spreadsheets and R's read.delim(comment.char = "#") read: rows of cells
/// between tabs, the header first, and then lines "# key = value". A text is quoted where it would
/// begin a comment.
class ResultTable {
 public:
  explicit ResultTable(std::span<const std::string> header) { row(header); }
  void row(std::span<const std::string> cells);
  void value(std::string_view key, std::string_view text);
  void value(std::string_view key, double number) { value(key, file_number(number)); }
  /// In words where there is none.
  void values(const Heterogeneity& heterogeneity, const std::optional<ScaleIntervals>& intervals);
  void values(const SmallStudyOutcome& outcome);
  /// Nothing where there is none.
  void values(const std::optional<Interval>& prediction);
  [[nodiscard]] const std::string& text() const { return text_; }

 private:
  std::string text_;
};

/// The header and the rows of the studies: study, n, g, variance, standard error, weight in %.
std::vector<std::vector<std::string>> effect_rows(std::span<const StudyEffect> studies,
                                                  std::span<const double> weights);

/// Such rows as comma-separated values.
std::string effect_csv(std::span<const std::vector<std::string>> rows);

HtmlTable effect_html(std::span<const StudyEffect> studies, std::span<const double> weights);
HtmlTable leave_one_out_html(std::span<const StudyEffect> studies,
                             std::span<const PooledEffect> pools);
/// The forest plot of the studies alone, for a model that has no single pooled effect.
ForestPlot forest_of(std::span<const StudyEffect> studies, std::span<const double> weights);
/// Adds the forest plot and the funnel plot of a pool to a report.
void add_pool_plots(HtmlReport& report, std::span<const StudyEffect> studies,
                    const StudiesPool& pooled);
/// What the paragraph on methods has to know of a pool.
void tell_methods(MethodsFacts& facts, const StudiesPool& pooled);

}  // namespace kvo::results
