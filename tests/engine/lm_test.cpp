// Linear models: which maps they leave, and the null distribution of a coefficient. The values of
// the maps are compared with metafor's in reference_test.cpp.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "runner.h"

using namespace kvo::images;

namespace {

namespace fs = std::filesystem;
using testing::Contains;
using testing::HasSubstr;

const std::string preprocess = "pp gray_matter, 0, 10, gray_matter, ";

std::string lines_of_maps(const std::vector<std::string>& names) {
  std::string lines;
  for (const std::string& name : names) lines += name + "\n";
  return lines;
}

TEST(LinearModel, LeavesTheMapsOfEachCoefficientAndOfTheModel) {
  const Installation engine;
  write_studies(10);
  write_text("kvo_table.txt", table_with_variables);
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
      testing::AllOf(HasSubstr("\nM_1\t3\t"), HasSubstr("\nM_00\t9\t234\tM = lm age + dose\tNA\n"),
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
