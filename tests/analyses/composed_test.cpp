// What the answers of each analysis come to: the comment and the command, or the refusal.

#include "analyses/composed.h"

#include <gtest/gtest.h>

#include "analyses/choices.h"
#include "analyses/create_mask.h"
#include "analyses/extract.h"
#include "analyses/globals.h"
#include "analyses/lm.h"
#include "analyses/mean.h"
#include "analyses/multi.h"
#include "analyses/pp.h"
#include "analyses/threshold.h"
#include "test_folder.h"
#include "workspace/files/region_labels.h"
#include "workspace/files/study_table.h"

namespace {

const char* const NO_NAME = "Please enter a name and try again.";

/// Comment and command, or the refusal alone.
std::string text_of(const Kvo_composed& composed) {
  EXPECT_TRUE(composed.refusal.empty() || composed.comment.empty());
  return composed.refusal + composed.comment + composed.command;
}

std::string refused(const std::string& name, const std::string& character) {
  return "The name '" + name + "' cannot be used in a command because it contains the character '" +
         character + "'. Please change the name and try again.";
}

TEST(Composed, Preprocessing) {
  const struct {
    Kvo_pp_answers answers;
    std::string text;
  } cases[] = {
      {{"gray_matter", 1, 20, "gray_matter", 1},
       "# Preprocess the studies ('gray_matter', anisotropy = 1.0, isotropic FWHM = 20mm, mask = "
       "'gray_matter', 1 randomizations):\npp gray_matter, 1.0, 20, gray_matter, 1"},
      {{"white_matter", 0.5F, 12, "white_matter", 20},
       "# Preprocess the studies ('white_matter', anisotropy = 0.5, isotropic FWHM = 12mm, mask = "
       "'white_matter', 20 randomizations):\npp white_matter, 0.5, 12, white_matter, 20"},
      {{"a(b)%s", 0, 50, "tbss", 500},
       "# Preprocess the studies ('a(b)%s', anisotropy = 0.0, isotropic FWHM = 50mm, mask = "
       "'tbss', 500 randomizations):\npp \"a(b)%s\", 0.0, 50, tbss, 500"},
      {{"", 1, 20, "m", 1}, "Please select the correlation template and try again."},
      {{"t", 1, 20, "", 1}, "Please select the mask and try again."},
      {{"t,", 1, 20, "m", 1}, refused("t,", ",")},
      {{"t", 1, 20, "m=1", 1}, refused("m=1", "=")},
  };
  for (const auto& c : cases) EXPECT_EQ(text_of(kvo_compose_pp(c.answers)), c.text);
}

TEST(Composed, Modalities) {
  const struct {
    int position;
    const char *correlation_template, *mask;
    bool needs_own_steps;
  } cases[] = {
      {1, "fractional_anisotropy", "white_matter", false},
      {2, "fractional_anisotropy", "tbss", true},
      {3, "gray_matter", "gray_matter", false},
      {4, "cerebrospinal_fluid", "cerebrospinal_fluid", false},
      {5, "gray_matter", "gray_matter", false},
      {6, "white_matter", "white_matter", false},
      {7, "gray_matter", "gray_matter", false},
      {0, "gray_matter", "gray_matter", false},
      {8, "gray_matter", "gray_matter", false},
      {-1, "gray_matter", "gray_matter", false},
  };
  for (const auto& c : cases) {
    const Kvo_modality& modality = kvo_modality(c.position);
    EXPECT_STREQ(modality.correlation_template, c.correlation_template) << c.position;
    EXPECT_STREQ(modality.mask, c.mask) << c.position;
    EXPECT_EQ(modality.needs_own_steps, c.needs_own_steps) << c.position;
  }
}

TEST(Composed, Globals) {
  const struct {
    Kvo_model_answers answers;
    std::string text;
  } cases[] = {
      {{"MyGlobals", {"", "", "", ""}, ""},
       "# Calculate globals of the model 'Y = 1' of all the studies as 'MyGlobals':\n"
       "MyGlobals = globals "},
      {{"MyGlobals", {"patients", "", "age", ""}, "adults"},
       "# Calculate globals of the model 'Y = 1 + patients + age' of the subgroup 'adults' as "
       "'MyGlobals':\nMyGlobals = globals  + patients + age, adults"},
      {{"a/b c", {"", "third", "age", "age"}, ""},
       "# Calculate globals of the model 'Y = 1 + third + age + age' of all the studies as "
       "'a-b_c':\na-b_c = globals  + third + age + age"},
      {{"G", {"", "", "", ""}, "f"},
       "# Calculate globals of the model 'Y = 1' of the subgroup 'f' as 'G':\nG = globals , f"},
      {{"", {"", "", "", ""}, ""}, NO_NAME},
      {{"G{}", {"", "", "a;b", ""}, "`f`"},
       "# Calculate globals of the model 'Y = 1 + a;b' of the subgroup '`f`' as 'G{}':\n"
       "\"G{}\" = globals  + \"a;b\", \"\\`f\\`\""},
      {{"G", {"", "", "a+b", ""}, ""}, refused("a+b", "+")},
  };
  for (const auto& c : cases) EXPECT_EQ(text_of(kvo_compose_globals(c.answers)), c.text);
}

TEST(Composed, GlobalsNeedTheSummariesOfTheSamples) {
  const struct {
    const char* header;
    const char* missing;
  } cases[] = {
      {"study n1 mean1 sd1", ""},
      {"study n1 n2 mean1 sd1 mean2 sd2", ""},
      {"study n1", "mean1"},
      {"study n1 n2", "mean1"},
      {"study n1 mean1", "sd1"},
      {"study n1 n2 sd2 mean1 sd1", "mean2"},
      {"study n1 n2 mean1 sd1 mean2", "sd2"},
      {"study n1 Mean1 mean1 SD1", "sd1"},
  };
  for (const auto& c : cases) {
    const std::string warning = kvo_missing_global_variable(kvotable_read(c.header));
    const std::string missing = c.missing;
    EXPECT_EQ(warning,
              missing.empty() ? "" : "Variable '" + missing + "' not found in the KVO table")
        << c.header;
  }
}

TEST(Composed, Mean) {
  const struct {
    Kvo_mean_answers answers;
    std::string text;
  } cases[] = {
      {{"MyMean", ""}, "# Calculate the mean of all the studies as 'MyMean':\nMyMean = mean "},
      {{"MyMean", "female"},
       "# Calculate the mean of the subgroup 'female' as 'MyMean':\nMyMean = mean female"},
      {{"My Mean", ""}, "# Calculate the mean of all the studies as 'My_Mean':\nMy_Mean = mean "},
      {{"a;rm -rf x&", ""},
       "# Calculate the mean of all the studies as 'a.rm_-rf_x-':\na.rm_-rf_x- = mean "},
      {{"<i>%s", ""}, "# Calculate the mean of all the studies as '-i-%s':\n-i-%s = mean "},
      {{"", ""}, NO_NAME},
      {{"$(x)", "a;touch${IFS}pwned"},
       "# Calculate the mean of the subgroup 'a;touch${IFS}pwned' as '$(x)':\n"
       "\"\\$(x)\" = mean \"a;touch\\${IFS}pwned\""},
      {{"#M", ""}, "# Calculate the mean of all the studies as '#M':\n\"#M\" = mean "},
      {{"M", "it's"}, refused("it's", "'")},
      {{"a n", ""},
       "The name 'a_n' cannot be used: names that end with '_n' are kept for the negative tails of "
       "null distributions. Please change the name and try again."},
      {{"a\tb", ""},
       "The name 'a\tb' cannot be used in a command because it contains a tab. Please change the "
       "name and try again."},
  };
  for (const auto& c : cases) EXPECT_EQ(text_of(kvo_compose_mean(c.answers)), c.text);
}

TEST(Composed, Jackknife) {
  const Q_table table = kvotable_read("study female none\nA 1 0\nB( 0 0\nC NA 0\nD 1 0\n");
  const struct {
    Kvo_mean_answers answers;
    std::string text;
  } cases[] = {
      {{"My Mean", "female", true},
       "# Perform a jackknife analysis of the subgroup 'female' as 'My_Mean':\n"},
      {{"M)", "", true}, "# Perform a jackknife analysis of all the studies as 'M)':\n"},
      {{"M", "none", true}, "No studies found. Please edit table and try again."},
      {{"", "female", true}, NO_NAME},
  };
  for (const auto& c : cases) EXPECT_EQ(text_of(kvo_compose_jackknife(c.answers, table)), c.text);
  const Q_table harmless = kvotable_read("study\nA\nB|\n");
  EXPECT_EQ(text_of(kvo_compose_jackknife({"M", "", true}, harmless)),
            "# Perform a jackknife analysis of all the studies as 'M':\n");
}

TEST(Composed, LinearModels) {
  enum { TWO, THREE, ONE_REGRESSOR, TWO_REGRESSORS };
  const std::string no_group = "Please select the 2nd group indicator and try again.";
  const struct {
    std::size_t kind;
    Kvo_model_answers answers;
    std::string text;
  } cases[] = {
      {TWO,
       {"MyTwoGroups", {"patients", "age", ""}, "adults"},
       "# Calculate the linear model 'Y = patients + age' of the subgroup 'adults' as "
       "'MyTwoGroups':\nMyTwoGroups = lm patients + age, adults"},
      {TWO,
       {"My Model", {"patients", "", "dose"}, ""},
       "# Calculate the linear model 'Y = patients + dose' of all the studies as 'My_Model':\n"
       "My_Model = lm patients + dose"},
      {TWO, {"M", {"", "age", ""}, ""}, no_group},
      {THREE,
       {"M", {"a", "b", "c", "d"}, ""},
       "# Calculate the linear model 'Y = a + b + c + d' of all the studies as 'M':\n"
       "M = lm a + b + c + d"},
      {THREE,
       {"M", {"a", "", "c", ""}, ""},
       "# Calculate the linear model 'Y = a + c' of all the studies as 'M':\nM = lm a + c"},
      {THREE, {"M", {"", "b", "", ""}, ""}, no_group},
      {ONE_REGRESSOR,
       {"MyRegression", {"age"}, ""},
       "# Calculate the linear model 'Y = age' of all the studies as 'MyRegression':\n"
       "MyRegression = lm age"},
      {ONE_REGRESSOR, {"M", {""}, ""}, "Please select the regressor and try again."},
      {TWO_REGRESSORS,
       {"M", {"age", "dose"}, "f"},
       "# Calculate the linear model 'Y = age + dose' of the subgroup 'f' as 'M':\n"
       "M = lm age + dose, f"},
      {TWO_REGRESSORS,
       {"M", {"age", "age"}, ""},
       "# Calculate the linear model 'Y = age + age' of all the studies as 'M':\n"
       "M = lm age + age"},
      {TWO_REGRESSORS, {"M", {"", "dose"}, ""}, "Please select the 1st regressor and try again."},
      {TWO_REGRESSORS, {"", {"", "dose"}, ""}, NO_NAME},
      {TWO_REGRESSORS,
       {"M", {"IQ(full)", "d|e"}, "f>g"},
       "# Calculate the linear model 'Y = IQ(full) + d|e' of the subgroup 'f>g' as 'M':\n"
       "M = lm \"IQ(full)\" + \"d|e\", \"f>g\""},
      {ONE_REGRESSOR, {"M", {"a=b"}, ""}, refused("a=b", "=")},
  };
  for (const auto& c : cases)
    EXPECT_EQ(text_of(kvo_compose_lm(kvo_lm_kinds()[c.kind], c.answers)), c.text);
}

TEST(Composed, LinearModelsOverwriteMapsOfTheirName) {
  const struct {
    Q_string_list maps;
    const char* name;
    bool may_overwrite;
  } cases[] = {
      {{"A", "MyRegression_00"}, "MyRegression", true},
      {{"MyRegression_0"}, "MyRegression", true},
      {{"MyRegression_0000"}, "MyRegression", true},
      {{"MyRegression", "MyRegression_00000", "MyRegression_1", "xMyRegression_0"},
       "MyRegression",
       false},
      {{"My_Model_000"}, "My Model", false},
      {{"My Model_000"}, "My Model", true},
      {{}, "M", false},
  };
  for (const auto& c : cases)
    EXPECT_EQ(kvo_lm_may_overwrite(c.maps, c.name), c.may_overwrite)
        << testing::PrintToString(c.maps);
}

TEST(Composed, Threshold) {
  const struct {
    const char* map;
    float probability, peak_height;
    int extent;
    std::string text;
  } cases[] = {
      {"MyMean", 0.005F, 1, 10,
       "# Threshold 'MyMean' with p 0.00500, minimum peak height 1.000, minimum 10 voxels:\n"
       "threshold \"MyMean\", p, 0.00500, 1.000, 10"},
      {"M", 0.00001F, 0.001F, 100,
       "# Threshold 'M' with p 0.00001, minimum peak height 0.001, minimum 100 voxels:\n"
       "threshold \"M\", p, 0.00001, 0.001, 100"},
      {"", 0.005F, 1, 10, "Please select the map and try again."},
      {"a\"b", 0.005F, 1, 10, refused("a\"b", "\"")},
      {"$a`\\(", 0.005F, 1, 10,
       "# Threshold '$a`\\(' with p 0.00500, minimum peak height 1.000, minimum 10 voxels:\n"
       "threshold \"\\$a\\`\\\\(\", p, 0.00500, 1.000, 10"},
  };
  for (const auto& c : cases)
    EXPECT_EQ(text_of(kvo_compose_threshold({c.map, c.probability, c.peak_height, c.extent})),
              c.text);
}

TEST(Composed, Masks) {
  const struct {
    const char *region, *name;
    std::string text;
  } labels[] = {
      {"Left amygdala", "",
       "# Create a mask from label [Left amygdala]:\nLeft_amygdala = mask label, 41"},
      {"Right amygdala", "roi 1",
       "# Create a mask from label [Right amygdala]:\nroi_1 = mask label, 42"},
      {"Left cerebellum, crus I", "",
       "# Create a mask from label [Left cerebellum, crus I]:\n"
       "Left_cerebellum._crus_I = mask label, 91"},
      {"Left inferior parietal (excluding supramarginal and angular) gyri", "",
       "# Create a mask from label [Left inferior parietal (excluding supramarginal and angular) "
       "gyri]:\nLeft_inferior_parietal_excluding_supramarginal_and_angular_gyri = mask label, 61"},
      {"Left amygdala", "m(1)",
       "# Create a mask from label [Left amygdala]:\n\"m(1)\" = mask label, 41"},
      {"", "", "Please select the brain region and try again."},
  };
  for (const auto& c : labels) EXPECT_EQ(text_of(kvo_compose_label_mask(c.region, c.name)), c.text);
  for (const std::string& region : kvo_region_texts())
    EXPECT_EQ(kvo_compose_label_mask(region, "").refusal, "") << region;

  const struct {
    Q_voxel coordinate;
    const char* name;
    std::string text;
  } coordinates[] = {
      {{10, -20, 30},
       "",
       "# Create a mask from coordinate [10,-20,30]:\n10_-20_30 = mask coordinate, 10, -20, 30"},
      {{0, 0, 0}, "", "# Create a mask from coordinate [0,0,0]:\n0_0_0 = mask coordinate, 0, 0, 0"},
      {{-70, 68, -42},
       "my roi",
       "# Create a mask from coordinate [-70,68,-42]:\nmy_roi = mask coordinate, -70, 68, -42"},
      {{0, 0, 0},
       "~",
       "# Create a mask from coordinate [0,0,0]:\n\"~\" = mask coordinate, 0, 0, 0"},
  };
  for (const auto& c : coordinates)
    EXPECT_EQ(text_of(kvo_compose_coordinate_mask(c.coordinate, c.name)), c.text);
}

TEST(Composed, Extraction) {
  const struct {
    const char* mask;
    std::string text;
  } cases[] = {
      {"Left_amygdala", "# Extract values within mask 'Left_amygdala':\nextract Left_amygdala"},
      {"", "Please select the mask and try again."},
      {"a`b`", "# Extract values within mask 'a`b`':\nextract \"a\\`b\\`\""},
      {"my mask",
       "The name 'my mask' cannot be used in a command because it contains a blank. Please change "
       "the name and try again."},
  };
  for (const auto& c : cases) EXPECT_EQ(text_of(kvo_compose_extract(c.mask)), c.text);
}

TEST(Composed, Multimodal) {
  const Kvo_multi_pair pair{{"/a/x_p.nii.gz", "meta1"}, {"/b c/y_p.nii.gz", "meta2"}};
  const std::string comment =
      "# Perform a multimodal analysis of 'meta1' (copied from /a/x_p.nii.gz) and 'meta2' (copied "
      "from /b c/y_p.nii.gz),\n# threshold with p ";
  const struct {
    Kvo_multi_answers answers;
    std::string text;
  } cases[] = {
      {{},
       "0.00250, minimum peak height 0.00025, minimum 10 voxels, options: [1, 2, 0.10000]:\n"
       "multi meta1, meta2, 0.00250, 0.00025, 10, 1, 2, 0.10000"},
      {{0.5F, 0.00001F, 100, true, false, 0.05F},
       "0.50000, minimum peak height 0.00001, minimum 100 voxels, options: [1, 0, 0.05000]:\n"
       "multi meta1, meta2, 0.50000, 0.00001, 100, 1, 0, 0.05000"},
      {{0.0025F, 0.00025F, 1, false, false, 0.1F},
       "0.00250, minimum peak height 0.00025, minimum 1 voxels, options: [0, 0, 0.10000]:\n"
       "multi meta1, meta2, 0.00250, 0.00025, 1, 0, 0, 0.10000"},
      {{0.0025F, 0.00025F, 1, false, true, 0.1F},
       "0.00250, minimum peak height 0.00025, minimum 1 voxels, options: [0, 2, 0.10000]:\n"
       "multi meta1, meta2, 0.00250, 0.00025, 1, 0, 2, 0.10000"},
  };
  for (const auto& c : cases)
    EXPECT_EQ(text_of(kvo_compose_multi(pair, c.answers)), comment + c.text);
}

TEST(Composed, ChoiceLists) {
  KVO_TableT = kvotable_read("study n1 zeta #x B a b\nS 1 1 0 3 NA 1\n");
  EXPECT_EQ(kvo_variable_choices(), (Q_string_list{"(none)", "#x", "B", "a", "b", "zeta"}));
  EXPECT_EQ(kvo_indicator_choices(), (Q_string_list{"(none)", "#x", "a", "b", "n1", "zeta"}));

  const Q_string_list list{"(none)", "x", "y"};
  const struct {
    float position;
    const char *entry, *variable;
  } positions[] = {{-1, "", ""},  {0, "", ""},   {1, "(none)", ""},
                   {2, "x", "x"}, {3, "y", "y"}, {4, "", ""}};
  for (const auto& p : positions) {
    EXPECT_EQ(kvo_chosen(list, p.position), p.entry) << p.position;
    EXPECT_EQ(kvo_chosen_variable(list, p.position), p.variable) << p.position;
  }
  EXPECT_EQ(kvo_position_or_first(list, "y"), 3);
  EXPECT_EQ(kvo_position_or_first(list, "z"), 1);
  EXPECT_EQ(kvo_position_or_first({}, "z"), 1);
}

TEST(Composed, ImageLists) {
  const Test_folder folder;
  for (const char* file : {"mask_a.nii.gz", "mask_a-b.nii.gz", "mask_x.nii", "mask_.nii.gz",
                           "Mask_y.nii.gz", "cor_mask_z.nii.gz", "mask_a.nii.gz.bak"})
    write_text(file, "");
  EXPECT_EQ(kvo_image_choices(".", "mask_"), (Q_string_list{"a-b", "a"}));
  EXPECT_EQ(kvo_image_choices(folder.path().c_str(), "cor_"), Q_string_list{"mask_z"});
  EXPECT_EQ(kvo_image_choices("none", "mask_"), Q_string_list{});
}

}  // namespace
