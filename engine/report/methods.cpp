#include "engine/report/methods.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "engine/base/wording.h"

namespace kvo::report {

namespace {

using Analysis = MethodsFacts::Analysis;

// With full anisotropy the kernel in uniform tissue, whatever the FWHM (path_map.h).
constexpr double uniform_tissue_fwhm = 20;

/// A published source: how the text cites it, and its full reference.
struct Source {
  const char *citation, *reference;
};

constexpr Source hedges{"Hedges 1981",
                        "Hedges LV (1981). Distribution theory for Glass's estimator of effect "
                        "size and related estimators. Journal of Educational Statistics "
                        "6:107\u2013128."};
constexpr Source borenstein{"Borenstein et al. 2009",
                            "Borenstein M, Hedges LV, Higgins JPT, Rothstein HR (2009). "
                            "Introduction to Meta-Analysis. Chichester: Wiley."};
constexpr Source dersimonian{"DerSimonian and Laird 1986",
                             "DerSimonian R, Laird N (1986). Meta-analysis in clinical trials. "
                             "Controlled Clinical Trials 7:177\u2013188."};
constexpr Source egger{"Egger et al. 1997",
                       "Egger M, Davey Smith G, Schneider M, Minder C (1997). Bias in "
                       "meta-analysis detected by a simple, graphical test. BMJ 315:629\u2013634."};
constexpr Source higgins{"Higgins and Thompson 2002",
                         "Higgins JPT, Thompson SG (2002). Quantifying heterogeneity in a "
                         "meta-analysis. Statistics in Medicine 21:1539\u20131558."};
constexpr Source lancaster{"Lancaster et al. 2007",
                           "Lancaster JL, Tordesillas-Gutiérrez D, Martinez M, et al. (2007). "
                           "Bias between MNI and Talairach coordinates analyzed using the ICBM-152 "
                           "brain template. Human Brain Mapping 28:1194\u20131205."};
constexpr Source nichols{"Nichols et al. 2005",
                         "Nichols T, Brett M, Andersson J, Wager T, Poline JB (2005). Valid "
                         "conjunction inference with the minimum statistic. NeuroImage "
                         "25:653\u2013660."};
constexpr Source thompson{"Thompson and Higgins 2002",
                          "Thompson SG, Higgins JPT (2002). How should meta-regression analyses be "
                          "undertaken and interpreted? Statistics in Medicine 21:1559\u20131573."};

/// Sentences, and the sources that they name.
class Paragraph {
 public:
  void sentence(const std::string& text) {
    if (!methods_.paragraph.empty()) methods_.paragraph += ' ';
    methods_.paragraph += text + ".";
  }

  /// " (Hedges 1981)", and remembers the source.
  std::string cited(std::initializer_list<Source> sources) {
    std::string text;
    for (const Source& source : sources) {
      text += (text.empty() ? " (" : "; ") + std::string(source.citation);
      std::vector<std::string>& known = methods_.sources;
      if (std::find(known.begin(), known.end(), source.reference) == known.end())
        known.emplace_back(source.reference);
    }
    return text + ")";
  }

  Methods finish() {
    std::sort(methods_.sources.begin(), methods_.sources.end());
    return std::move(methods_);
  }

 private:
  Methods methods_;
};

/// A number of a command, without trailing zeros: "0.005", "20".
std::string plain(double value) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.6g", value);
  const bool scientific = std::string(text.data()).find('e') != std::string::npos;
  if (scientific) std::snprintf(text.data(), text.size(), "%.8f", value);
  std::string digits = text.data();
  if (scientific) digits.erase(digits.find_last_not_of('0') + 1);
  return digits;
}

/// "a", "a and b", "a, b and c".
std::string listed(const std::vector<std::string>& names) {
  std::string text;
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (i > 0) text += i + 1 == names.size() ? " and " : ", ";
    text += names[i];
  }
  return text;
}

/// "gray matter" for the name of a template or mask "gray_matter".
std::string readable(std::string name) {
  std::replace(name.begin(), name.end(), '_', ' ');
  return name;
}

std::string studies_of(const MethodsFacts& facts) {
  std::string text = counted(facts.studies, "study", "studies");
  if (facts.participants > 0)
    text += " with " + counted(facts.participants, "participant", "participants") +
            (facts.studies == 1 ? "" : " in total");
  if (!facts.subgroup.empty()) text += " (subgroup '" + facts.subgroup + "')";
  if (!facts.left_out.empty()) text += " (without '" + facts.left_out + "')";
  return text;
}

void describe_studies(Paragraph& text, const MethodsFacts& facts) {
  const std::string studies = studies_of(facts);
  switch (facts.analysis) {
    case Analysis::mean:
    case Analysis::linear_model:
      text.sentence("A voxel-based meta-analysis of " + studies + " was conducted");
      return;
    case Analysis::extraction:
      text.sentence("The effects of " + studies + " were extracted from the mask '" +
                    readable(facts.mask_of_extraction) + "' in their maps of effect sizes");
      return;
    case Analysis::globals:
      text.sentence("A meta-analysis of the global values of " + studies + " was conducted");
      return;
    case Analysis::conjunction:
      text.sentence("The overlap of two voxel-based meta-analyses, '" + facts.first + "' and '" +
                    facts.second + "', was assessed");
  }
}

void describe_effects(Paragraph& text) {
  text.sentence("Effect sizes were Hedges' g, corrected for small samples" +
                text.cited({hedges, borenstein}));
}

std::string gaussian(double fwhm) {
  return "as a Gaussian kernel of " + plain(fwhm) + " mm full width at half maximum";
}

/// How effects spread from peaks.
void describe_kernel(Paragraph& text, const MethodsFacts& facts) {
  const std::string correlation = readable(facts.correlation_template);
  std::string kernel = "Around each reported peak the effect size fell off ";
  if (facts.anisotropy < 1) kernel += gaussian(facts.fwhm);
  if (facts.anisotropy > 0 && facts.anisotropy < 1)
    kernel += ", made anisotropic (" + plain(facts.anisotropy) +
              " on a scale from 0 to 1) by the " + correlation +
              " correlation template: the more neighbouring voxels differ in it, the less an "
              "effect spreads from one to the other";
  if (facts.anisotropy >= 1)
    kernel += "along tissue (full anisotropy): the more neighbouring voxels differ in the " +
              correlation +
              " correlation template, the less an effect spreads from one to the other; in uniform "
              "tissue it fell off " +
              gaussian(uniform_tissue_fwhm);
  text.sentence(kernel);
  text.sentence(
      "Where the kernels of several peaks overlapped, their effect sizes were averaged "
      "with the kernels as weights");
  if (facts.unknown_heights)
    text.sentence(
        "Peaks reported without their height were given the height that the "
        "significance threshold of their study implies");
}

void describe_maps(Paragraph& text, const MethodsFacts& facts) {
  describe_effects(text);
  const std::size_t images = std::min(facts.studies_with_images, facts.studies);
  const std::size_t with_peaks = facts.studies - images;
  if (images > 0 && with_peaks > 0)
    text.sentence("The statistical map of " + counted(images, "study", "studies") +
                  " was available" + (images == 1 ? "" : " for each") + "; of " +
                  counted(with_peaks, "study", "studies") +
                  " a map was estimated from the reported peak coordinates");
  else if (images > 0)
    text.sentence(images == 1 ? "The statistical map of the study was available"
                              : "The statistical maps of all studies were available");
  else
    text.sentence(facts.studies == 1
                      ? "The map of the study was estimated from the reported peak coordinates"
                      : "The map of each study was estimated from the reported peak coordinates");
  if (facts.talairach)
    text.sentence("Coordinates in Talairach space were transformed to MNI space" +
                  text.cited({lancaster}));
  if (with_peaks > 0) describe_kernel(text, facts);
  if (!facts.mask.empty())
    text.sentence("The analysis was confined to the mask '" + readable(facts.mask) +
                  "' in MNI space, with voxels of 2 mm");
}

void describe_model(Paragraph& text, const MethodsFacts& facts) {
  const bool is_regression = facts.analysis == Analysis::linear_model || !facts.variables.empty();
  const std::string unit =
      facts.analysis == Analysis::mean || facts.analysis == Analysis::linear_model
          ? " in each voxel"
          : "";
  if (is_regression) {
    text.sentence(
        "A random-effects meta-regression of the effect size on " +
        (facts.variables.empty() ? std::string("the intercept") : listed(facts.variables)) +
        " was fitted" + unit +
        " by weighted least squares, with the method-of-moments "
        "estimate of the between-study variance" +
        text.cited({dersimonian, thompson}));
    if (!facts.term.empty())
      text.sentence("The results reported here are those of the coefficient of " + facts.term);
    return;
  }
  if (facts.studies == 1) {
    text.sentence("With a single study its effect size was divided by its standard error" + unit);
    return;
  }
  text.sentence("Effect sizes were pooled" + unit +
                " with a random-effects model, each study weighted by the inverse of the sum of "
                "its own and the between-study variance" +
                text.cited({dersimonian}) + ", and heterogeneity was described by Q and I²" +
                text.cited({higgins}));
}

void describe_null(Paragraph& text, const MethodsFacts& facts) {
  if (facts.randomizations == 0) return;
  std::string sentence =
      "Statistical significance was assessed by comparison with a null "
      "distribution of " +
      counted(facts.randomizations, "randomization", "randomizations") + " (seed " +
      std::to_string(facts.seed) + ")";
  const std::size_t images = std::min(facts.studies_with_images, facts.studies);
  if (images < facts.studies)
    sentence += ", in which the peaks were moved to random voxels of the mask";
  if (images > 0)
    sentence += std::string(images < facts.studies ? " and" : ", in which") +
                " the voxels of the maps were permuted and smoothed back to their own smoothness";
  text.sentence(sentence);
}

void describe_conjunction(Paragraph& text, const MethodsFacts& facts) {
  if (!facts.error_assumed) {
    text.sentence(
        "In each voxel and for either direction the larger of the two p values was "
        "taken, which tests the conjunction of the two" +
        text.cited({nichols}));
    return;
  }
  text.sentence(
      "Each p value was taken to be itself estimated with error: z values were divided "
      "by \u221A2, as if measured with an error of unit variance, before the larger of the "
      "two p values was taken in each voxel and for either direction, which tests the "
      "conjunction of the two" +
      text.cited({nichols}));
  if (facts.better_scenario)
    text.sentence(
        "So as not to be overly conservative, these p values were rescaled such that a "
        "tolerable p of " +
        plain(facts.tolerable_p) + " stays as it is");
}

void describe_thresholds(Paragraph& text, const MethodsFacts& facts) {
  if (!facts.thresholds) return;
  const MethodsFacts::Thresholds& thresholds = *facts.thresholds;
  std::vector<std::string> terms = {"p < " + plain(thresholds.p) +
                                    (thresholds.family_wise
                                         ? " (one-tailed, corrected for the family-wise error)"
                                         : " (one-tailed, uncorrected)")};
  if (thresholds.peak_z) terms.push_back("a peak z of at least " + plain(*thresholds.peak_z));
  if (thresholds.peak_p) terms.push_back("a peak p of at most " + plain(*thresholds.peak_p));
  terms.push_back("an extent of at least " + counted(thresholds.extent, "voxel", "voxels"));
  text.sentence("Voxels were considered significant at " + terms.front() +
                ", in clusters (26-connectivity) with " + listed({terms.begin() + 1, terms.end()}));
}

}  // namespace

Methods methods_of(const MethodsFacts& facts) {
  Paragraph text;
  describe_studies(text, facts);
  if (facts.analysis == Analysis::conjunction) {
    describe_conjunction(text, facts);
    describe_thresholds(text, facts);
    return text.finish();
  }
  if (facts.analysis == Analysis::globals)
    describe_effects(text);
  else
    describe_maps(text, facts);
  describe_model(text, facts);
  if (facts.analysis == Analysis::extraction && facts.studies >= 3)
    text.sentence("Asymmetry of the funnel plot was tested by the regression of Egger's test" +
                  text.cited({egger}));
  if (facts.analysis == Analysis::mean || facts.analysis == Analysis::linear_model)
    describe_null(text, facts);
  describe_thresholds(text, facts);
  return text.finish();
}

}  // namespace kvo::report
