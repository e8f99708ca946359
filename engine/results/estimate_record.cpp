#include "engine/results/estimate_record.h"

#include <algorithm>

#include "engine/base/exists.h"
#include "engine/base/text_file.h"
#include "engine/base/wording.h"
#include "util/text.h"

namespace kvo::results {

namespace {

std::string percent(double share) {
  return decimal_text(100 * share, 0) + " %";
}

std::string sources_text(const JointFacts& facts) {
  const std::string peaks =
      "the peaks of " + Q_counted(facts.studies_with_peaks, "study", "studies");
  if (facts.images == 0) return peaks;
  return peaks + " and the images of " + Q_counted(facts.images, "study", "studies");
}

std::string thresholds_text(const JointFacts& facts) {
  const std::string assumed = "assumed to be a one-tailed p of " + text_of(assumed_threshold_p);
  const std::size_t count = facts.thresholds_assumed;
  if (count == 0) return "as the table states them";
  if (count == facts.studies_with_peaks) return assumed;
  return assumed + " for " + Q_counted(count, "study", "studies") + ", else as the table states";
}

std::string shares_text(std::vector<double> shares) {
  std::sort(shares.begin(), shares.end());
  return "between " + percent(shares.front()) + " and " + percent(shares.back()) + ", " +
         percent(shares[shares.size() / 2]) + " in the median";
}

std::string variance_text(const JointFacts& facts) {
  const ChosenAssumptions& chosen = facts.chosen;
  const std::string tau2 = "τ² = " + decimal_text(chosen.assumptions.tau2, 3);
  if (facts.tau2_of_images) return tau2 + ", the mean of the images";
  if (chosen.tau2_by_prediction)
    return tau2 + ", which foretells the peaks of left-out studies best";
  return tau2 + ", assumed: the peaks do not tell it";
}

std::string smoothness_text(const ChosenAssumptions& chosen) {
  return decimal_text(chosen.assumptions.smoothness, 0) + " mm of a study’s map and " +
         decimal_text(chosen.assumptions.width, 0) + " mm of the effects (FWHM), " +
         (chosen.by_prediction ? "which foretell the peaks of left-out studies best"
                               : "assumed: there are too few peaks to tell");
}

}  // namespace

std::string estimate_record_file(const std::string& name) {
  return name + "_estimate.txt";
}

std::vector<Fact> estimate_facts(const JointFacts& facts) {
  return {{"Effects estimated from", sources_text(facts)},
          {"Thresholds of the studies with peaks", thresholds_text(facts)},
          {"Listed share of a study’s maxima", shares_text(facts.shares)},
          {"Between-study variance", variance_text(facts)},
          {"Smoothness", smoothness_text(facts.chosen)},
          {"Doubt about what is listed",
           decimal_text(facts.listing_doubt, 2) + " in g, part of the intervals"}};
}

std::string estimate_record(const std::vector<Fact>& facts) {
  std::string text;
  for (const Fact& fact : facts) text += fact.label + ": " + fact.text + "\n";
  return text;
}

std::vector<Fact> read_estimate_record(const std::string& name) {
  std::vector<Fact> facts;
  const std::string file = estimate_record_file(name);
  if (!path_exists(file)) return facts;
  const std::string text = read_text(file);
  for (const TextLine& line : filled_lines(text)) {
    const std::size_t colon = line.text.find(": ");
    if (colon == std::string_view::npos) continue;
    facts.push_back(
        {std::string(line.text.substr(0, colon)), std::string(line.text.substr(colon + 2))});
  }
  return facts;
}

}  // namespace kvo::results
