#include "engine/report/checklist.h"

#include <algorithm>
#include <string>

#include "engine/base/text_file.h"
#include "engine/maps/folder_maps.h"
#include "engine/report/sources.h"
#include "kvo_config.h"
#include "util/q_string.h"
#include "util/text.h"

namespace kvo::report {

namespace {

/// Below it single studies drive results of convergence too easily (Müller et al. 2018, rule 2).
constexpr std::size_t enough_studies = 17;

std::size_t studies_with_peaks(const MethodsFacts& facts) {
  return facts.studies - std::min(facts.studies, facts.studies_with_images);
}

std::string question(const MethodsFacts& facts) {
  const std::string studies = Q_counted(facts.studies, "study", "studies");
  if (!facts.term.empty())
    return "Whether the effect changes with " + facts.term + " over " + studies + ".";
  return (studies_with_peaks(facts) > 0
              ? "Whether the peaks of " + studies + " converge, and how large the effect is."
              : "Whether the effects of " + studies +
                    " lie on one side of 0, and how large they "
                    "are.");
}

std::string studies_known(const MethodsFacts& facts) {
  std::string text = Q_counted(facts.studies, "study", "studies");
  if (facts.participants > 0)
    text += " with " + Q_counted(facts.participants, "participant", "participants");
  text += ".";
  if (facts.studies < enough_studies)
    text += " Fewer than " + std::to_string(enough_studies) +
            " are too few to be sure that no single study drives a result.";
  return text;
}

std::string data_known(const MethodsFacts& facts) {
  const std::size_t peaks = studies_with_peaks(facts), images = facts.studies - peaks;
  if (images == 0) return "All studies give peaks.";
  if (peaks == 0) return "All studies give statistical maps.";
  return Q_counted(images, "study gives its", "studies give their") + " statistical map, " +
         Q_counted(peaks, "study", "studies") + " peaks.";
}

std::string space_known(const MethodsFacts& facts) {
  return std::string(facts.talairach
                         ? "Coordinates in Talairach space were transformed to MNI space"
                         : "All studies are in MNI space") +
         (facts.mask.empty() ? "."
                             : "; the analysis is confined to one mask, '" + facts.mask + "'.");
}

std::string threshold_known(const MethodsFacts& facts) {
  if (!facts.thresholds) return "";
  const std::string limit = "p < " + decimals_of(facts.thresholds->p);
  if (facts.thresholds->kind == 0)
    return limit +
           ", not corrected for the number of voxels: false positives are to be expected, "
           "so what survives is exploratory.";
  if (facts.thresholds->kind + 1 == p_map_kinds.size())
    return "The rate of false discoveries among what survives is held at " +
           decimals_of(facts.thresholds->p) + ".";
  return limit + ", corrected for the family-wise error over the mask.";
}

std::string again_known(const MethodsFacts& facts) {
  std::string text = "The commands above";
  if (facts.randomizations > 0) text += ", with their seed " + std::to_string(facts.seed) + ",";
  return text + Q_format(" and version %.2f make the same maps again; ", KVO_VERSION).str() +
         "'export NAME.zip' gives the table, peaks and maps of the studies to others.";
}

}  // namespace

HtmlTable checklist_of(const MethodsFacts& facts, bool has_runs_without_one) {
  HtmlTable table;
  table.caption = "What is asked of a meta-analysis of neuroimaging studies, after " +
                  reference_of(sources::muller);
  table.columns = {{"Recommendation"}, {"In this analysis"}, {"For its authors to say"}};
  const auto row = [&](const char* rule, const std::string& known, const char* asked) {
    table.rows.push_back({{rule, known, asked}});
  };
  row("1. A specific question", question(facts), "Why it is asked, and of which contrasts.");
  row("2. Enough studies", studies_known(facts), "The power for the effect that is expected.");
  row("3. Data collected and organized", data_known(facts),
      "How studies were searched for, and why some were left out.");
  row("4. The same coverage, one space", space_known(facts),
      "Whether each study searched the whole brain; studies of regions alone bias the result.");
  row("5. Several contrasts of the same people", "Each study counts once.",
      "Whether any two of them share participants.");
  row("6. Data checked twice",
      "Heights below a study's own threshold and places that cannot be are refused, not numbers "
      "that were copied wrongly.",
      "Who compared the table and the peaks with the articles.");
  row("7. A plan made beforehand", "Not known here.", "Where the protocol was registered.");
  row("8. Sensitivity against false positives", threshold_known(facts), "Why this threshold.");
  row("9. Diagnostics",
      has_runs_without_one
          ? "The table above says how each cluster fares without one study each."
          : "The jackknife, which shows how clusters fare without one study each, was not run.",
      "Which studies each result rests on.");
  row("10. Transparency", again_known(facts), "Where the maps and the table can be had.");
  return table;
}

}  // namespace kvo::report
