// Linear models: which are refused, which maps they leave, and the null distribution of a
// coefficient. The values of the maps are compared with metafor's in reference_test.cpp.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "runner.h"

namespace {

namespace fs = std::filesystem;
using testing::Contains;
using testing::HasSubstr;

const std::string preprocess = "pp gray_matter, 0, 10, gray_matter, ";

/// Ten studies with variables of all kinds.
void write_studies_with_variables() {
  write_studies(10);
  write_text("kvo_table.txt",
             "study n1 n2 age dose sum same nearly huge tiny few one word\n"
             "study0 12 NA 20 1 21.1 7 0.1 1e13 1e-14 1 1 3\n"
             "study1 13 15 31 0.5 31.6 7 0.1 2 2e-14 4 NA 5\n"
             "study2 14 15 44 3 47.1 7 0.1 3 1e-14 2 NA low\n"
             "study3 15 NA 25 2.5 27.6 7 0.1 4 3e-14 NA NA NA\n"
             "study4 16 15 38 0 38.1 7 0.1 5 1e-14 NA NA 2\n"
             "study5 17 15 52 1.5 53.6 7 0.1 6 2e-14 NA NA 1\n"
             "study6 18 NA 29 2 31.1 7 0.1 7 1e-14 NA NA 2\n"
             "study7 19 15 63 4 67.1 7 0.1 8 5e-14 NA NA 3\n"
             "study8 20 15 47 3.5 50.6 7 0.1 9 1e-14 NA NA 4\n"
             "study9 12 NA NA NA NA NA 0.1000000001 NA NA NA NA NA\n");
}

TEST(LinearModel, IsRefusedWhenItCannotBeFitted) {
  struct Case {
    const char *model, *reason;
  };
  const std::string nothing_new = "says nothing that the terms before it do not say already.";
  const Case cases[] = {
      {"(none)", "'kvo_table.txt' has no variable '(none)'."},
      {"age + weight", "'kvo_table.txt' has no variable 'weight'."},
      {"age, weight", "'kvo_table.txt' has no variable 'weight'."},
      {"word", "'kvo_table.txt', line 4: word of study 'study2' is 'low', which is no number."},
      {"study",
       "'kvo_table.txt', line 2: study of study 'study0' is 'study0', which is no number."},
      {"age + dose + age", "The term 'age' is in the model twice."},
      {"n1 + age + dose + few + same", "The term 'same' is one too many: a model has at most 4"},
      {"age + same", "The term 'same' has the same value in all the studies."},
      {"age, one",
       "The term 'age' makes the model too large: with 1 term it needs at least 3 studies "
       "that have all values, and there is 1."},
      {"dose + few",
       "The term 'few' makes the model too large: with 2 terms it needs at least 4 "
       "studies that have all values, and there are 3."},
      {"nearly", "The term 'nearly' says nothing"},
      {"age + dose + sum",
       "The term 'sum' says nothing that the terms before it do not say already."},
      {"sum + n1 + age + dose", "The term 'dose' says nothing that the terms before it do not"},
      {"huge", "The term 'huge' has values that are too large. Please give them in another unit."},
      {"age + tiny", "The term 'tiny' has values that are too close together. Please give them in"},
  };
  const Installation engine;
  write_studies_with_variables();
  ASSERT_EQ(engine.run(preprocess + "1").closing(), "d");
  const auto before = snapshot();
  for (const Case& c : cases) {
    const Outcome outcome = engine.run(std::string("x = lm ") + c.model);
    EXPECT_EQ(outcome.status, 1) << c.model;
    EXPECT_EQ(outcome.lines.size(), 1U) << c.model;
    EXPECT_THAT(outcome.closing(), testing::StartsWith(std::string("WARNING: ") + c.reason));
    EXPECT_TRUE(snapshot() == before) << c.model;
  }
}

std::string lines_of_maps(const std::vector<std::string>& names) {
  std::string lines;
  for (const std::string& name : names) lines += name + "\n";
  return lines;
}

TEST(LinearModel, LeavesTheMapsOfEachCoefficientAndOfTheModel) {
  const Installation engine;
  write_studies_with_variables();
  ASSERT_EQ(engine.run(preprocess + "20").closing(), "d");
  EXPECT_THAT(engine.run("M = lm few").lines,
              Contains("  7 studies are left out, as they have no value of few: study3, study4, "
                       "study5, study6, study7 and 2 more"));
  ASSERT_EQ(engine.run("M_10 = mean").closing(), "d");
  ASSERT_TRUE(fs::exists("M_10_tau2.nii.gz"));
  EXPECT_THAT(engine.run("M = lm + age+dose").lines,
              Contains("  1 study is left out, as it has no value of age or dose: study9"));

  EXPECT_EQ(read_text("kvo_maps.txt"), lines_of_maps({"M_0", "M_1", "M_10", "M_00", "M_01"}));
  EXPECT_THAT(
      read_text("kvo_analyses.txt"),
      testing::AllOf(HasSubstr("\nM_1\t3\t"), HasSubstr("\nM_00\t9\t234\tM = lm age + dose\n"),
                     HasSubstr("\nM_01\t9\t"), testing::Not(HasSubstr("mean"))));
  EXPECT_THAT(
      read_text("kvo_nd.txt"),
      testing::AllOf(HasSubstr("\nM_10\t6720\t"), HasSubstr("\nM_10_n\t"), HasSubstr("\nM_1\t")));
  for (const char* name : {"M_00", "M_10", "M_01"}) {
    for (const char* suffix : {"_g", "_var", "_z", "_p", "_n_p", "_pFWE", "_n_pFWE"}) {
      const std::string file = name + std::string(suffix) + ".nii.gz";
      EXPECT_EQ(read_image(file).description, "KVO 4.31 M = lm age + dose") << file;
    }
    for (const char* suffix : {"_tau2", "_I2", "_Q"})
      EXPECT_EQ(fs::exists(name + std::string(suffix) + ".nii.gz"), name == std::string("M_00"));
  }
}

/// Of four studies with a peak each in the same one of two voxels that are far apart, two have a
/// positive one, and two, of the other group, a negative one. No difference between the groups is
/// as clear as when all four meet, which moved peaks do in a given voxel with probability 1/16, and
/// in one of the two with 1/8.
TEST(LinearModel, FindsTheProbabilityThatMovedPeaksMeet) {
  const Installation engine;
  write_mask(engine.share() / "mask_gray_matter.nii.gz", {{-50, 0, 0}, {50, 0, 0}});
  write_text("kvo_table.txt", "study n1 group\na 20 1\nb 20 1\nc 20 0\nd 20 0\n");
  for (const char* study : {"a", "b", "c", "d"})
    write_text(std::string(study) + ".peaks.txt",
               std::string("# space: MNI\n50 0 0 ") + (*study < 'c' ? "5\n" : "-5\n"));
  ASSERT_EQ(engine.run(preprocess + "4000").closing(), "d");
  ASSERT_EQ(engine.run("M = lm group").closing(), "d");
  const auto value = [](const char* map) {
    return value_at(read_image(std::string("M_1_") + map + ".nii.gz"), {50, 0, 0});
  };
  // Four standard errors of a binomial share of 4000.
  EXPECT_NEAR(value("p"), 1.0 / 16, 4 * 0.0038);
  EXPECT_NEAR(value("pFWE"), 1.0 / 8, 4 * 0.0052);
  EXPECT_FLOAT_EQ(value("n_p"), 1);
}

}  // namespace
