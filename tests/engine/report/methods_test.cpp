// The methods paragraph says what was done, in whole sentences, and lists exactly what it cites.

#include <glib.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "engine/report/methods.h"
#include "util/handles.h"

using namespace kvo::report;

namespace {

using testing::HasSubstr;
using testing::Not;
using Analysis = MethodsFacts::Analysis;

MethodsFacts facts_of(Analysis analysis, std::size_t studies) {
  MethodsFacts facts;
  facts.analysis = analysis;
  facts.studies = studies;
  facts.participants = 25 * studies;
  facts.mask = facts.correlation_template = "gray_matter";
  facts.mask_of_extraction = "Left_amygdala";
  facts.randomizations = 500;
  facts.seed = 7;
  facts.first = "fMRI";
  facts.second = "VBM";
  if (analysis == Analysis::linear_model) facts.variables = {"age", "dose", "sex"};
  return facts;
}

TEST(Methods, SaysWhatWasDone) {
  struct {
    const char* name;
    std::function<void(MethodsFacts&)> change;
    std::vector<const char*> said, unsaid;
  } const cases[] = {
      {"plain mean",
       [](MethodsFacts&) {},
       {"21 studies with 525 participants in total", "Hedges' g",
        "Gaussian kernel of 20 mm full width", "500 randomizations (seed 7)",
        "DerSimonian and Laird 1986", "Higgins and Thompson 2002", "'gray matter'"},
       {"Talairach", "anisotropic", "without their height", "significant at", "Nichols"}},
      {"one study",
       [](MethodsFacts& f) {
         f.studies = 1;
         f.participants = 25;
       },
       {"1 study with 25 participants was conducted", "The map of the study", "single study"},
       {"pooled", "each study", "in total"}},
      {"Talairach, unknown heights",
       [](MethodsFacts& f) {
         f.talairach = f.unknown_heights = true;
         f.subgroup = "adults";
         f.left_out = "Lee2010";
       },
       {"Lancaster et al. 2007", "without their height", "(subgroup 'adults') (without 'Lee2010')"},
       {}},
      {"anisotropy",
       [](MethodsFacts& f) {
         f.anisotropy = 0.5;
         f.fwhm = 12.5;
       },
       {"12.5 mm", "anisotropic (0.5", "gray matter correlation template"},
       {"full anisotropy"}},
      {"full anisotropy",
       [](MethodsFacts& f) {
         f.anisotropy = 1;
         f.fwhm = 12.5;
       },
       {"full anisotropy", "kernel of 20 mm"},
       {"12.5"}},
      {"images only",
       [](MethodsFacts& f) { f.studies_with_images = 21; },
       {"maps of all studies", "permuted"},
       {"kernel", "peaks"}},
      {"some images",
       [](MethodsFacts& f) { f.studies_with_images = 1; },
       {"The statistical map of 1 study was available;", "of 20 studies", "permuted", "moved"},
       {}},
      {"thresholds",
       [](MethodsFacts& f) {
         f.thresholds = {0.005, false, 1.0, std::nullopt, 10};
       },
       {"p < 0.005 (one-tailed, uncorrected)",
        "peak z of at least 1 and an extent of at least 10 "
        "voxels"},
       {}},
      {"family-wise",
       [](MethodsFacts& f) {
         f.thresholds = {0.00001, true, std::nullopt, 0.05, 1};
       },
       {"p < 0.00001 (one-tailed, corrected for the family-wise error)", "peak p of at most 0.05",
        "1 voxel."},
       {"uncorrected"}},
      {"linear model",
       [](MethodsFacts& f) {
         f.analysis = Analysis::linear_model;
         f.variables = {"age", "dose", "sex"};
         f.term = "dose";
       },
       {"on age, dose and sex", "coefficient of dose", "Thompson and Higgins 2002"},
       {"Higgins and Thompson 2002", "were pooled"}},
      {"simple conjunction",
       [](MethodsFacts& f) { f.analysis = Analysis::conjunction; },
       {"'fMRI' and 'VBM'", "Nichols et al. 2005"},
       {"error of unit", "tolerable", "Hedges"}},
      {"conjunction with error, better scenario",
       [](MethodsFacts& f) {
         f.analysis = Analysis::conjunction;
         f.error_assumed = f.better_scenario = true;
         f.tolerable_p = 0.1;
       },
       {"divided by √2", "tolerable p of 0.1 stays"},
       {}},
      {"extraction",
       [](MethodsFacts& f) { f.analysis = Analysis::extraction; },
       {"'Left amygdala'", "Egger et al. 1997", "pooled with"},
       {"in each voxel", "seed"}},
      {"globals",
       [](MethodsFacts& f) { f.analysis = Analysis::globals; },
       {"global values of 21 studies", "Hedges' g"},
       {"kernel", "voxel", "seed", "Egger"}},
  };
  for (const auto& [name, change, said, unsaid] : cases) {
    SCOPED_TRACE(name);
    MethodsFacts facts = facts_of(Analysis::mean, 21);
    facts.mask_of_extraction = "Left_amygdala";
    change(facts);
    const std::string text = methods_of(facts).paragraph;
    for (const char* part : said) EXPECT_THAT(text, HasSubstr(part));
    for (const char* part : unsaid) EXPECT_THAT(text, Not(HasSubstr(part)));
  }
}

/// The name and the year of every match, as "Hedges 1981", each once and in order.
std::vector<std::string> names_and_years(const char* pattern, const std::string& text) {
  std::vector<std::string> found;
  GRegex* regex = g_regex_new(pattern, GRegexCompileFlags(0), GRegexMatchFlags(0), nullptr);
  GMatchInfo* match = nullptr;
  g_regex_match(regex, text.c_str(), GRegexMatchFlags(0), &match);
  for (; g_match_info_matches(match); g_match_info_next(match, nullptr)) {
    const Q_g_memory<char> name(g_match_info_fetch(match, 1)), year(g_match_info_fetch(match, 2));
    found.push_back(name.get() + std::string(" ") + year.get());
  }
  g_match_info_free(match);
  g_regex_unref(regex);
  std::sort(found.begin(), found.end());
  found.erase(std::unique(found.begin(), found.end()), found.end());
  return found;
}

constexpr const char* citation = "([A-Z]\\w+)(?: and [A-Z]\\w+| et al\\.)? ([0-9]{4})";
constexpr const char* reference = "^(\\w+)[^(]*\\((\\d{4})\\)";
constexpr const char* bad_grammar =
    "  | [,.;:)]|\\( |[,.;:]{2}|\\b1 (studies|voxels|randomizations)|"
    "\\b(2|25|500) (study|voxel|randomization)\\b|\\. [a-z]|\\band and";

TEST(Methods, IsGrammaticalAndListsWhatItCites) {
  for (const Analysis analysis : {Analysis::mean, Analysis::linear_model, Analysis::conjunction,
                                  Analysis::extraction, Analysis::globals})
    for (const std::size_t studies : {1U, 2U, 25U})
      for (const std::size_t images : {0U, 1U, 2U, 25U})
        for (const double anisotropy : {0.0, 0.5, 1.0})
          for (const std::size_t randomizations : {0U, 1U, 500U}) {
            MethodsFacts facts = facts_of(analysis, studies);
            facts.studies_with_images = images;
            facts.anisotropy = anisotropy;
            facts.randomizations = randomizations;
            facts.talairach = facts.unknown_heights = randomizations == 1;
            facts.error_assumed = facts.better_scenario = anisotropy > 0;
            facts.tolerable_p = 0.1;
            facts.thresholds = {0.005, false, 1.0, std::nullopt, randomizations};
            const Methods methods = methods_of(facts);
            const std::string& text = methods.paragraph;
            SCOPED_TRACE(text);
            EXPECT_FALSE(g_regex_match_simple(bad_grammar, text.c_str(), GRegexCompileFlags(0),
                                              GRegexMatchFlags(0)));
            EXPECT_TRUE(text.ends_with("."));
            std::vector<std::string> listed;
            for (const std::string& source : methods.sources)
              for (const std::string& name : names_and_years(reference, source))
                listed.push_back(name);
            EXPECT_EQ(listed.size(), methods.sources.size());
            std::sort(listed.begin(), listed.end());
            EXPECT_EQ(listed, names_and_years(citation, text));
          }
}

}  // namespace
