// The methods paragraph says what was done, in whole sentences, and lists exactly what it cites.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>
#include <set>
#include <sstream>

#include "engine/report/checklist.h"
#include "engine/report/methods.h"
#include "table.h"
#include "util/q_string.h"

using namespace kvo::report;

namespace {

using testing::HasSubstr;
using testing::Not;
using Analysis = MethodsFacts::Analysis;

/// Facts of 21 studies but for what is told of them: "studies=1 talairach".
MethodsFacts facts_of(Analysis analysis, const std::string& told) {
  MethodsFacts f;
  f.analysis = analysis;
  f.studies = 21;
  f.mask = f.correlation_template = "gray_matter";
  f.mask_of_extraction = "Left_amygdala";
  f.seed = 7;
  f.first = "fMRI";
  f.second = "VBM";
  if (analysis == Analysis::linear_model) f.variables = {"age", "dose", "sex"};
  MethodsFacts::Thresholds thresholds;
  std::istringstream words(told);
  for (std::string word; words >> word;) {
    const Cells fact = split(word + "=", "=", 3);
    const std::string& name = fact[0];
    const double number = std::atof(fact[1].c_str());
    if (name == "studies") f.studies = std::size_t(number);
    if (name == "images") f.studies_with_images = std::size_t(number);
    if (name == "randomizations") f.randomizations = std::size_t(number);
    if (name == "fwhm") f.fwhm = number;
    if (name == "anisotropy") f.anisotropy = number;
    if (name == "subgroup") f.subgroup = fact[1];
    if (name == "left_out") f.left_out = fact[1];
    if (name == "term") f.term = fact[1];
    if (name == "talairach") f.talairach = true;
    if (name == "unknown_heights") f.unknown_heights = true;
    if (name == "from_peaks") f.estimated_from_peaks = true;
    if (name == "error") f.error_assumed = f.better_scenario = true;
    if (name == "reml") f.restricted_likelihood = f.hartung_knapp = true;
    if (name == "pool") f.prediction_interval = f.small_study_test = true;
    if (name == "variables") f.variables = {"age", "dose"};
    if (name == "tolerable_p") f.tolerable_p = number;
    if (name == "p") thresholds.p = number;
    if (name == "kind") thresholds.kind = std::size_t(number);
    if (name == "both") thresholds.both = true;
    if (name == "peak_z") thresholds.peak_z = number;
    if (name == "peak_p") thresholds.peak_p = number;
    if (name == "extent") thresholds.extent = std::size_t(number);
  }
  f.participants = 25 * f.studies;
  if (thresholds.p > 0) f.thresholds = thresholds;
  return f;
}

TEST(Methods, SaysWhatWasDone) {
  struct {
    Analysis analysis;
    const char *facts, *said, *unsaid;  ///< the texts with "|" between
  } const cases[] = {
      {Analysis::mean, "randomizations=500",
       "21 studies with 525 participants in total|Hedges' g|Gaussian kernel of 20 mm full width|"
       "random places in the tissues|500 times (seed 7)|DerSimonian and Laird 1986|Higgins and "
       "Thompson 2002|"
       "'gray matter'",
       "Talairach|anisotropic|without their height|significant at|Nichols"},
      {Analysis::mean, "studies=1",
       "1 study with 25 participants was conducted|coordinates of the study were used|single study",
       "pooled|each study|in total"},
      {Analysis::mean, "from_peaks randomizations=500",
       "local maxima of a smooth random field|Bardeen et al. 1986|not taken for no effect|"
       "For the test of convergence|500 times",
       "DerSimonian|together with the images"},
      {Analysis::mean, "subgroup=adults left_out=Lee2010 talairach unknown_heights",
       "Lancaster et al. 2007|without their height|(subgroup 'adults') (without 'Lee2010')",
       "moving the peaks"},
      {Analysis::mean, "fwhm=12.5 anisotropy=0.5",
       "12.5 mm|anisotropic (0.5|gray matter correlation template", "full anisotropy"},
      {Analysis::mean, "fwhm=12.5 anisotropy=1", "full anisotropy|kernel of 20 mm", "12.5"},
      {Analysis::mean, "images=21 randomizations=1", "maps of all studies|drawing the signs",
       "kernel|peaks"},
      {Analysis::mean, "images=1 randomizations=1",
       "The statistical map of 1 study was available;|of 20 studies|drawing the signs|moving the "
       "peaks",
       "anisotropic"},
      {Analysis::mean, "p=0.005 peak_z=1 extent=10",
       "p < 0.005 (one-tailed, uncorrected)|peak z of at least 1 and an extent of at least 10 "
       "voxels",
       "family"},
      {Analysis::mean, "p=0.05 kind=3 both extent=1",
       "(two-tailed, corrected for the family-wise error by threshold-free cluster enhancement|"
       "Smith and Nichols 2009",
       "uncorrected"},
      {Analysis::mean, "p=0.05 kind=4 extent=1", "q < 0.05|false discovery rate|Hochberg 1995",
       "family"},
      {Analysis::mean, "p=0.00001 kind=1 peak_p=0.05 extent=1",
       "p < 0.00001 (one-tailed, corrected for the family-wise error)|peak p of at most 0.05|"
       "1 voxel.",
       "uncorrected"},
      {Analysis::linear_model, "term=dose randomizations=10000",
       "on age, dose and sex|coefficient of dose|Thompson and Higgins 2002|of dose was dealt out "
       "anew to the studies 10\u202F000 times|Winkler et al. 2014",
       "Higgins and Thompson 2002|were pooled"},
      {Analysis::conjunction, "", "'fMRI' and 'VBM'|Nichols et al. 2005",
       "error of unit|tolerable|Hedges"},
      {Analysis::conjunction, "error tolerable_p=0.1",
       "divided by \u221A2|tolerable p of 0.1 stays", "Hedges"},
      {Analysis::extraction, "randomizations=500 reml pool",
       "'Left amygdala'|were pooled with|REML (Viechtbauer 2005)|Knapp and Hartung 2003|"
       "Pustejovsky and Rodgers 2019",
       "in each voxel|seed|DerSimonian"},
      {Analysis::extraction, "from_peaks unknown_heights images=3",
       "effect in the mask 'Left amygdala', as its mean|peaks reported without their height the "
       "place|together with the images|repeated with other thresholds",
       "kernel|pooled with|Pustejovsky|threshold of their study implies"},
      {Analysis::extraction, "from_peaks images=4 reml pool",
       "Of the images alone the between-study variance|Q profile|Pustejovsky",
       "kernel|pooled with|Knapp"},
      {Analysis::globals, "randomizations=500 pool",
       "global values of 21 studies|Hedges' g|tests are those of the normal|DerSimonian and Laird "
       "1986|Pustejovsky",
       "kernel|voxel|seed|restricted"},
      {Analysis::globals, "reml pool",
       "restricted maximum likelihood, REML (Viechtbauer 2005)|Knapp and Hartung 2003|Viechtbauer "
       "2007|"
       "Pustejovsky and Rodgers 2019|Higgins et al. 2009",
       "DerSimonian|Residual|F dist"},
      {Analysis::globals, "reml variables studies=4",
       "on age and dose|restricted maximum likelihood, REML (Viechtbauer 2005)|F distributions|"
       "Residual heterogeneity",
       "Pustejovsky|prediction|DerSimonian"},
      {Analysis::globals, "studies=1", "single study|normal",
       "restricted|Knapp|Q profile|prediction"},
  };
  for (const auto& [analysis, facts, said, unsaid] : cases) {
    const std::string text = methods_of(facts_of(analysis, facts)).paragraph;
    for (const std::string& part : split(said, "|", 20)) EXPECT_THAT(text, HasSubstr(part));
    for (const std::string& part : split(unsaid, "|", 20)) EXPECT_THAT(text, Not(HasSubstr(part)));
  }
}

/// The name and the year of every match, as "Hedges 1981".
std::set<std::string> names_and_years(const char* pattern, const std::string& text) {
  std::set<std::string> found;
  const std::regex regex(pattern);
  for (std::sregex_iterator match(text.begin(), text.end(), regex), end; match != end; ++match)
    found.insert(match->str(1) + " " + match->str(2));
  return found;
}

constexpr const char* citation = "([A-Z][^\\s(),;]+)(?: and [A-Z]\\w+| et al\\.)? ([0-9]{4})";
constexpr const char* reference = "^(\\S+)[^(]*\\((\\d{4})\\)";
constexpr const char* bad_grammar =
    "  | [,.;:)]|\\( |[,.;:]{2}|\\b1 (studies|voxels|randomizations)|"
    "\\b(2|25|500) (study|voxel|randomization)\\b|\\. [a-z]|\\band and";

TEST(Methods, IsGrammaticalAndListsWhatItCites) {
  for (const Analysis analysis : {Analysis::mean, Analysis::linear_model, Analysis::conjunction,
                                  Analysis::extraction, Analysis::globals})
    for (const std::string studies : {"1", "2", "25"})
      for (const std::string images : {"0", "1", "2", "25"})
        for (const std::string anisotropy :
             {"0 variables", "0.5 error", "1 error reml pool", "1 reml variables"})
          for (const std::string times : {"0", "1 talairach unknown_heights from_peaks", "500"}) {
            const Q_string facts = Q_format(
                "studies=%s images=%s anisotropy=%s tolerable_p=0.1 p=0.005 peak_z=1 extent=%s "
                "randomizations=%s",
                studies.c_str(), images.c_str(), anisotropy.c_str(), times.c_str(), times.c_str());
            const Methods methods = methods_of(facts_of(analysis, facts.str()));
            const std::string& text = methods.paragraph;
            SCOPED_TRACE(text);
            EXPECT_FALSE(std::regex_search(text, std::regex(bad_grammar)));
            EXPECT_TRUE(text.ends_with("."));
            std::set<std::string> listed;
            for (const Source& source : methods.sources)
              listed.merge(names_and_years(reference, reference_of(source)));
            EXPECT_EQ(listed.size(), methods.sources.size());
            EXPECT_EQ(listed, names_and_years(citation, text));
          }
}

TEST(Sources, AreWrittenForBibtex) {
  const std::pair<Source, const char*> cases[] = {
      {sources::moller,
       "@article{moeller1998,\n"
       "  author = {Møller, J. and Syversveen, A. R. and Waagepetersen, R. P.},\n"
       "  title = {{Log Gaussian Cox processes}},\n  year = {1998},\n"
       "  journal = {Scandinavian Journal of Statistics},\n  volume = {25},\n"
       "  pages = {451--482}\n}\n"},
      {sources::lancaster, "Martinez, M. and others},"},
      {sources::borenstein, "address = {Chichester},\n  publisher = {Wiley}\n}\n"},
      {sources::raudenbush, "@misc{raudenbush2009,"},
  };
  for (const auto& [source, part] : cases) EXPECT_THAT(bibtex_of(source), HasSubstr(part));
}

TEST(Checklist, SaysWhatIsKnown) {
  struct {
    Analysis analysis;
    const char* facts;
    bool runs;
    std::vector<std::pair<std::size_t, const char*>> said;  ///< of the recommendations, from 1
  } const cases[] = {
      {Analysis::mean,
       "studies=16 images=1 talairach randomizations=500 p=0.005",
       true,
       {{1, "the peaks of 16 studies converge"},
        {2, "16 studies with 400 participants. Fewer than 17"},
        {3, "1 study gives its statistical map, 15 studies peaks."},
        {4, "Talairach space were transformed"},
        {8, "p < 0.005, not corrected"},
        {9, "table above"},
        {10, "seed 7"}}},
      {Analysis::linear_model,
       "term=dose images=21 p=0.05 kind=3",
       false,
       {{1, "changes with dose"},
        {2, "participants."},
        {3, "All studies give statistical maps."},
        {4, "All studies are in MNI"},
        {8, "family-wise"},
        {9, "was not run"}}},
      {Analysis::mean,
       "images=21 p=0.05 kind=4",
       false,
       {{1, "lie on one side of 0"}, {8, "false discoveries among what survives is held at 0.05"}}},
  };
  for (const auto& [analysis, facts, runs, said] : cases) {
    const HtmlTable table = checklist_of(facts_of(analysis, facts), runs);
    ASSERT_EQ(table.rows.size(), 10U);
    for (const auto& [number, part] : said)
      EXPECT_THAT(table.rows[number - 1].cells[1], HasSubstr(part));
  }
}

}  // namespace
