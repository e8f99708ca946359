#include "engine/report/methods.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <string_view>

#include "engine/base/text_file.h"
#include "engine/base/wording.h"
#include "engine/maps/path_map.h"
#include "engine/model/joint_estimate.h"
#include "kvo_config.h"
#include "util/q_string.h"
#include "util/text.h"

namespace kvo::report {

namespace {

using Analysis = MethodsFacts::Analysis;

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
      std::vector<Source>& known = methods_.sources;
      if (std::none_of(known.begin(), known.end(), [&](const Source& other) {
            return std::string_view(other.citation) == source.citation;
          }))
        known.push_back(source);
    }
    return text + ")";
  }

  Methods finish() {
    sentence(Q_format("The analysis was made with Quorvane %.2f", KVO_VERSION).str());
    std::sort(methods_.sources.begin(), methods_.sources.end(),
              [](const Source& a, const Source& b) { return reference_of(a) < reference_of(b); });
    return std::move(methods_);
  }

 private:
  Methods methods_;
};

/// "gray matter" for the name of a template or mask "gray_matter".
std::string readable(std::string name) {
  std::replace(name.begin(), name.end(), '_', ' ');
  return name;
}

std::string studies_of(const MethodsFacts& facts) {
  std::string text = Q_counted(facts.studies, "study", "studies");
  if (facts.participants > 0)
    text += " with " + Q_counted(facts.participants, "participant", "participants") +
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
      if (facts.estimated_from_peaks) {
        text.sentence("The effect in the mask '" + readable(facts.mask_of_extraction) +
                      "', as its mean over the voxels, was estimated from " + studies);
        return;
      }
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
                text.cited({sources::hedges, sources::borenstein}));
}

std::string gaussian(double fwhm) {
  return "as a Gaussian kernel of " + decimals_of(fwhm) + " mm full width at half maximum";
}

/// How effects spread from peaks.
void describe_kernel(Paragraph& text, const MethodsFacts& facts) {
  const std::string correlation = readable(facts.correlation_template);
  std::string kernel = facts.estimated_from_peaks
                           ? "For the test of convergence the effect size fell off around each "
                             "reported peak "
                           : "Around each reported peak the effect size fell off ";
  if (facts.anisotropy < 1) kernel += gaussian(facts.fwhm);
  if (facts.anisotropy > 0 && facts.anisotropy < 1)
    kernel += ", made anisotropic (" + decimals_of(facts.anisotropy) +
              " on a scale from 0 to 1) by the " + correlation +
              " correlation template: the more neighbouring voxels differ in it, the less an "
              "effect spreads from one to the other";
  if (facts.anisotropy >= 1)
    kernel += "along tissue (full anisotropy): the more neighbouring voxels differ in the " +
              correlation +
              " correlation template, the less an effect spreads from one to the other; in uniform "
              "tissue it fell off " +
              gaussian(tissue_fwhm_mm);
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
    text.sentence("The statistical map of " + Q_counted(images, "study", "studies") +
                  " was available" + (images == 1 ? "" : " for each") + "; of " +
                  Q_counted(with_peaks, "study", "studies") +
                  " the reported peak coordinates were used");
  else if (images > 0)
    text.sentence(images == 1 ? "The statistical map of the study was available"
                              : "The statistical maps of all studies were available");
  else
    text.sentence(facts.studies == 1 ? "The reported peak coordinates of the study were used"
                                     : "The reported peak coordinates of the studies were used");
  if (facts.talairach)
    text.sentence("Coordinates in Talairach space were transformed to MNI space" +
                  text.cited({sources::lancaster}));
  // A region's effect does not depend on the kernel.
  const bool is_region = facts.analysis == Analysis::extraction && facts.estimated_from_peaks;
  if (with_peaks > 0 && !is_region) describe_kernel(text, facts);
  if (facts.unknown_heights && is_region)
    text.sentence("Of peaks reported without their height the place and the sign were used");
  if (!facts.mask.empty())
    text.sentence("The analysis was confined to the mask '" + readable(facts.mask) +
                  "' in MNI space, with voxels of 2 mm");
}

/// How effects follow from peaks.
void describe_likelihood(Paragraph& text, const MethodsFacts& facts) {
  text.sentence(
      "The peaks of a study were taken for those that it lists of the local maxima of a smooth "
      "random field whose mean is the effect and whose variance is the sum of the study's own and "
      "the between-study variance; the density of such maxima by height is known" +
      text.cited({sources::bardeen}));
  text.sentence(
      "Of its maxima a study was taken to list those that are the highest within a volume; how "
      "large "
      "that volume is followed from the number of its peaks, so that what a study does not list "
      "was "
      "not taken for no effect");
  text.sentence(
      std::string(facts.variables.empty() ? "The effect was" : "The coefficients were") +
      " estimated as the mode of the posterior of this point process with a smooth Gaussian prior" +
      text.cited({sources::moller}) + ", with 95 % intervals by the Laplace approximation" +
      text.cited({sources::rue}) +
      (facts.studies_with_images > 0
           ? ", together with the images, weighted by the inverse of their variances"
           : ""));
  if (facts.analysis == Analysis::extraction)
    text.sentence(
        "The estimate was repeated with other thresholds of significance, shares of listed maxima "
        "and smoothness, to see how it depends on what is assumed of them");
}

/// How single values are analysed by REML.
void describe_restricted_model(Paragraph& text, const MethodsFacts& facts) {
  const std::string variance =
      "the between-study variance was estimated by restricted maximum likelihood, REML" +
      text.cited({sources::reml});
  if (!facts.variables.empty())
    text.sentence("A random-effects meta-regression of the effect size on " +
                  listed(facts.variables) + " was fitted by weighted least squares" +
                  text.cited({sources::thompson}) + "; " + variance);
  else
    text.sentence(
        "Effect sizes were pooled with a random-effects model, each study weighted by the "
        "inverse of the sum of its own and the between-study variance; " +
        variance);
  text.sentence(std::string(facts.variables.empty() ? "Heterogeneity" : "Residual heterogeneity") +
                " was described by Q, I² and H²" + text.cited({sources::higgins}));
}

/// How far single values differ.
void describe_differences(Paragraph& text, const MethodsFacts& facts) {
  if (facts.studies > 1)
    text.sentence("Intervals of τ², I² and H² are those of the Q profile" +
                  text.cited({sources::profile}));
  if (facts.prediction_interval)
    text.sentence("A 95 % prediction interval was calculated" + text.cited({sources::prediction}));
  if (facts.small_study_test)
    text.sentence(
        "Small-study effects were tested by random-effects regression of the effect size on the "
        "standard error that the sample sizes alone let expect, since that of Hedges' g depends on "
        "g itself" +
        text.cited({sources::pustejovsky}));
}

/// What is said of single values beyond their model.
void describe_single_values(Paragraph& text, const MethodsFacts& facts) {
  if (facts.hartung_knapp)
    text.sentence("Intervals and tests are those of Hartung and Knapp, by the t " +
                  std::string(facts.variables.empty() ? "distribution" : "and F distributions") +
                  text.cited({sources::knapp}));
  else
    text.sentence("Intervals and tests are those of the normal distribution");
  describe_differences(text, facts);
}

void describe_model(Paragraph& text, const MethodsFacts& facts) {
  if (facts.estimated_from_peaks) {
    describe_likelihood(text, facts);
    if (!facts.term.empty())
      text.sentence("The results reported here are those of the coefficient of " + facts.term);
    return;
  }
  if (facts.restricted_likelihood && facts.studies > 1) {
    describe_restricted_model(text, facts);
    return;
  }
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
        text.cited({sources::dersimonian, sources::thompson}));
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
                text.cited({sources::dersimonian}) +
                ", and heterogeneity was described by Q and I²" + text.cited({sources::higgins}));
}

void describe_null(Paragraph& text, const MethodsFacts& facts) {
  if (facts.randomizations == 0) return;
  const std::size_t images = std::min(facts.studies_with_images, facts.studies);
  const std::string times = Q_counted(facts.randomizations, "time", "times") + " (seed " +
                            std::to_string(facts.seed) + ")";
  const char* own =
      ", and each voxel's z was compared with its own values, beyond the largest of "
      "which p was told by their moments";
  if (!facts.term.empty()) {
    text.sentence(
        "Statistical significance of the coefficient was assessed by permutation: what the "
        "other terms leave of " +
        facts.term + " was dealt out anew to the studies " + times +
        text.cited({sources::winkler}) + own);
  } else if (images == facts.studies && images > 0) {
    text.sentence(
        "Statistical significance was assessed by drawing the signs of the studies' maps at "
        "random, " +
        times + own);
  } else {
    text.sentence(
        std::string(
            "Whether peaks converge more than by chance was assessed by moving the peaks of "
            "each study, those that lie together as one, to random places in the tissues "
            "where studies report peaks") +
        (images > 0 ? " and drawing the signs of the studies' maps at random" : "") + ", " + times);
  }
}

void describe_conjunction(Paragraph& text, const MethodsFacts& facts) {
  if (!facts.error_assumed) {
    text.sentence(
        "In each voxel and for either direction the larger of the two p values was "
        "taken, which tests the conjunction of the two" +
        text.cited({sources::nichols}));
    return;
  }
  text.sentence(
      "Each p value was taken to be itself estimated with error: z values were divided "
      "by \u221A2, as if measured with an error of unit variance, before the larger of the "
      "two p values was taken in each voxel and for either direction, which tests the "
      "conjunction of the two" +
      text.cited({sources::nichols}));
  if (facts.better_scenario)
    text.sentence(
        "So as not to be overly conservative, these p values were rescaled such that a "
        "tolerable p of " +
        decimals_of(facts.tolerable_p) + " stays as it is");
}

/// The kind of p_map_kinds that is a false discovery rate.
constexpr std::size_t rate_kind = p_map_kinds.size() - 1;

std::string correction_words(Paragraph& text, std::size_t kind) {
  std::string family_wise = "corrected for the family-wise error";
  switch (kind) {
    case 1:
      return family_wise;
    case 2:
      return family_wise + " by the extent of clusters formed at p < 0.001";
    case 3:
      return family_wise + " by threshold-free cluster enhancement" + text.cited({sources::smith});
    case rate_kind:
      return "the false discovery rate" + text.cited({sources::benjamini});
    default:
      return "uncorrected";
  }
}

void describe_thresholds(Paragraph& text, const MethodsFacts& facts) {
  if (!facts.thresholds) return;
  const MethodsFacts::Thresholds& thresholds = *facts.thresholds;
  std::vector<std::string> terms = {std::string(thresholds.kind == rate_kind ? "q < " : "p < ") +
                                    decimals_of(thresholds.p) +
                                    (thresholds.both ? " (two-tailed, " : " (one-tailed, ") +
                                    correction_words(text, thresholds.kind) + ")"};
  if (thresholds.peak_z) terms.push_back("a peak z of at least " + decimals_of(*thresholds.peak_z));
  if (thresholds.peak_p) terms.push_back("a peak p of at most " + decimals_of(*thresholds.peak_p));
  terms.push_back("an extent of at least " + Q_counted(thresholds.extent, "voxel", "voxels"));
  text.sentence("Voxels were considered significant at " + terms.front() +
                ", in clusters (26-connectivity) with " + listed(std::span(terms).subspan(1)));
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
  const bool is_extraction = facts.analysis == Analysis::extraction;
  if (facts.analysis == Analysis::globals || (is_extraction && !facts.estimated_from_peaks)) {
    describe_single_values(text, facts);
  } else if (is_extraction && facts.studies_with_images >= enough_images) {
    text.sentence(
        "Of the images alone the between-study variance was estimated by restricted maximum "
        "likelihood, REML" +
        text.cited({sources::reml}) + ", and heterogeneity described by Q, I² and H²" +
        text.cited({sources::higgins}));
    describe_differences(text, facts);
  }
  if (facts.analysis == Analysis::mean || facts.analysis == Analysis::linear_model)
    describe_null(text, facts);
  describe_thresholds(text, facts);
  return text.finish();
}

}  // namespace kvo::report
