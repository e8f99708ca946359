// The estimate of a region where studies have peaks, against the maps of the mean and against what
// follows by hand from an extraction of the studies with peaks alone.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <sstream>

#include "runner.h"
#include "table.h"

using namespace kvo::images;

namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;

/// What an extraction has left: the cells of its studies, and its values by their keys.
struct Extracted {
  std::map<std::string, Cells> studies;
  std::map<std::string, std::string> values;

  [[nodiscard]] double number(const std::string& key) const { return std::stod(values.at(key)); }
};

Extracted extracted(const Installation& engine, const std::string& mask) {
  EXPECT_EQ(engine.run("extract " + mask).closing(), "d");
  std::istringstream lines(read_text("extract_" + mask + ".txt"));
  Extracted result;
  for (std::string line; std::getline(lines, line);) {
    const std::size_t equal = line.find(" = ");
    if (line.starts_with("# "))
      result.values[line.substr(2, equal - 2)] = line.substr(equal + 3);
    else
      result.studies[line.substr(0, line.find('\t'))] = split(line, "\t", 13);
  }
  return result;
}

constexpr int studies = 8;
constexpr const char* preprocess = "pp gray_matter, 0, 10, gray_matter, 1";

/// Eight studies with peaks, one of them far away from the region and one of unknown height.
void write_folder(const Installation& engine) {
  write_studies(studies);
  write_text("study0.peaks.txt", "# space: MNI\n-60 40 40 5\n");
  write_text("study1.peaks.txt", "# space: MNI\n24 -14 6 n\n34 -16 2 n\n");
  write_mask("mask_one.nii.gz", {{24, -14, 6}});
  write_mask("mask_some.nii.gz", {{24, -14, 6}, {26, -14, 6}, {28, -12, 4}, {20, -20, 0}});
  write_mask(engine.share() / "mask_brain.nii.gz", box_voxels());
}

TEST(Region, HasTheMeanOfTheMapAndTheVarianceOfTheMean) {
  const Installation engine;
  write_folder(engine);
  engine.must_run({preprocess, "M = mean"});
  const Image g = read_image("M_g.nii.gz"), var = read_image("M_var.nii.gz");
  const Extracted one = extracted(engine, "one"), some = extracted(engine, "some");
  EXPECT_NEAR(one.number("g"), double(value_at(g, {24, -14, 6})), 1e-5);
  // The map's variance is that of draws.
  EXPECT_NEAR(std::pow(one.number("standard_error"), 2) / double(value_at(var, {24, -14, 6})), 1,
              0.4);
  double sum = 0;
  for (const std::array<int, 3> mm :
       {std::array{24, -14, 6}, {26, -14, 6}, {28, -12, 4}, {20, -20, 0}})
    sum += double(value_at(g, mm));
  EXPECT_NEAR(some.number("g"), sum / 4, 1e-5);
  EXPECT_LT(some.number("standard_error"), one.number("standard_error"));

  EXPECT_EQ(one.studies.at("study0").back(), "nothing listed here");
  EXPECT_EQ(one.studies.at("study1").back(), "1 peak inside, of unknown height at 24,-14,6");
  EXPECT_EQ(some.studies.at("study1").back(),
            "2 peaks nearby, 1 of them inside, of unknown height at 24,-14,6");
  EXPECT_THAT(some.studies.at("study1"),
              testing::ElementsAre("study1", "28", "NA", "NA", "NA", "NA", "1", "2", "NA", "24",
                                   "-14", "6", testing::_));
  EXPECT_THAT(some.values.at("heterogeneity"), HasSubstr("cannot be told from peaks"));
  EXPECT_EQ(some.values.count("tau2") + some.values.count("prediction_low_95"), 0U);
  // The threshold that is assumed is one of those that are tried.
  EXPECT_EQ(some.number("threshold_p_0.001_g"), some.number("g"));
  EXPECT_GT(some.number("threshold_p_0.01_high_95"), some.number("threshold_p_0.01_low_95"));
  // A larger listed share is less doubt about what is listed.
  EXPECT_LT(some.number("listed_share_times_1.25_standard_error"),
            some.number("listed_share_times_0.75_standard_error"));
  EXPECT_THAT(read_text("extract_some.html"),
              AllOf(HasSubstr("nothing listed here"), HasSubstr("Sensitivity"),
                    HasSubstr("Posterior density"), HasSubstr("Left out"),
                    HasSubstr("assumed to be a one-tailed p"), Not(HasSubstr("Funnel"))));
}

TEST(Region, TakesImagesByTheInverseOfTheirVariances) {
  const Installation engine;
  write_folder(engine);
  const std::string table = read_text("kvo_table.txt");
  engine.must_run({preprocess});
  const Extracted peaks = extracted(engine, "some");
  // Too few to tell the between-study variance, so that nothing else is assumed of the peaks.
  write_text("kvo_table.txt", table + "image1\t20\tNA\nimage2\t14\t18\n");
  for (const int i : {1, 2}) write_t_image("image" + std::to_string(i), i);
  engine.must_run({preprocess});
  const Extracted both = extracted(engine, "some");
  const double tau2 = both.number("assumed_tau2");
  EXPECT_EQ(tau2, peaks.number("assumed_tau2"));
  double weights = std::pow(peaks.number("standard_error"), -2), sum = weights * peaks.number("g");
  for (const std::string name : {"image1", "image2"}) {
    const Cells& cells = both.studies.at(name);
    const double weight = 1 / (std::stod(cells[3]) + tau2);
    weights += weight;
    sum += weight * std::stod(cells[2]);
    EXPECT_NEAR(std::stod(cells[5]), 100 * weight * std::pow(both.number("standard_error"), 2),
                1e-6);
    EXPECT_EQ(cells.back(), "image");
  }
  EXPECT_NEAR(both.number("g"), sum / weights, 1e-8);
  EXPECT_NEAR(both.number("standard_error"), std::pow(weights, -0.5), 1e-8);
  EXPECT_THAT(both.values.at("heterogeneity"), HasSubstr("cannot be told from peaks"));
  EXPECT_THAT(both.values.at("studies_with_peaks") + " " + both.values.at("images"), "8 2");

  std::string with_four = table;
  for (int i = 1; i <= 4; ++i) {
    write_t_image("image" + std::to_string(i), i);
    with_four += "image" + std::to_string(i) + "\t20\tNA\n";
  }
  write_text("kvo_table.txt", with_four);
  engine.must_run({preprocess});
  EXPECT_THAT(
      engine.run("extract some").lines,
      AllOf(Contains(testing::StartsWith("  Heterogeneity: of the 4 images alone: Q = ")),
            Contains(testing::StartsWith("  Small-study effects: of the 4 images alone: "))));
}

TEST(Region, SaysWhenItWasChosenByItsEffects) {
  const Installation engine;
  write_folder(engine);
  write_image(engine.share() / "atlas_aal_frw.nii.gz", image_of(0));
  engine.must_run({preprocess, "threshold = mean", "threshold threshold, p, 0.4, 0.1, 2"});
  const std::string result = "threshold_z_p_0.40000_0.100_2.nii.gz";
  std::vector<std::array<int, 3>> kept, beyond;
  const Image image = read_image(result);
  for (const auto& mm : box_voxels()) (value_at(image, mm) == 0 ? beyond : kept).push_back(mm);
  ASSERT_FALSE(kept.empty() || beyond.empty());
  fs::copy_file(result, "mask_itself.nii.gz");
  write_mask("mask_within.nii.gz", {kept.front(), kept.back()});
  write_mask("mask_across.nii.gz", {kept.front(), beyond.front()});
  // A map of that name is no thresholded map.
  fs::copy_file("threshold_p.nii.gz", "mask_mean.nii.gz");
  const struct {
    const char *mask, *text;
    bool said;
  } cases[] = {{"itself", "the mask is a thresholded map", true},
               {"within", "these voxels are among those of the thresholded map", true},
               {"across", "Circular", false},
               {"mean", "Circular", false}};
  for (const auto& [mask, text, said] : cases) {
    std::string console;
    for (const std::string& line : engine.run(std::string("extract ") + mask).lines)
      console += line + "\n";
    for (const std::string& told : {console, read_text(std::string("extract_") + mask + ".html")})
      EXPECT_EQ(told.find(text) != std::string::npos, said) << mask;
  }
}

}  // namespace
