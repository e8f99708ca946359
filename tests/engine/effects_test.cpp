// Analyses of one effect a study: the pools, models and tests against R's metafor, masks and values
// inside them against nibabel, what is refused, and names from strangers.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <random>

#include "companions/common/csv.h"
#include "companions/kvo_core/random_effects.h"
#include "runner.h"

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

/// A table with means of one or two samples, covariates of very different scales, and gaps.
void write_global_values(int studies, bool two_samples, double spread) {
  std::mt19937 random(unsigned(studies) + (two_samples ? 1000 : 0));
  const auto between = [&](double low, double high) {
    return low + (high - low) * double(random()) / double(std::mt19937::max());
  };
  std::ofstream table("kvo_table.txt");
  table << "study\tn1\tmean1\tsd1" << (two_samples ? "\tn2\tmean2\tsd2" : "")
        << "\tyear\tdose\tpatients\tage\tkept\n";
  for (int s = 0; s < studies; ++s) {
    table << "s" << s << '\t' << 8 + random() % 60 << '\t' << 5 + spread * between(-1, 1) << '\t';
    if (two_samples && s % 7 == 3)
      table << "NA";
    else
      table << between(1, 3);
    if (two_samples)
      table << '\t' << 8 + random() % 60 << '\t' << between(4, 5) << '\t' << between(1, 3);
    table << '\t' << 1990 + random() % 30 << '\t' << between(0, 10) << '\t' << random() % 2
          << '\t';
    if (s % 9 == 4)
      table << "NA";
    else
      table << between(20, 70);
    table << '\t' << (s % 5 == 0 ? "0" : "1") << '\n';
  }
}

void write_estimate(std::ofstream& file, const std::string& name, const PooledEffect& pool) {
  const auto& [mean, heterogeneity, prediction, weights] = pool;
  file << name << '\t' << mean.value << '\t' << mean.se << '\t' << mean.z << '\t' << mean.p << '\t'
       << mean.interval.low << '\t' << mean.interval.high << '\t' << heterogeneity.Q << '\t'
       << heterogeneity.p << '\t' << heterogeneity.tau2 << '\t' << heterogeneity.I2 << '\t'
       << heterogeneity.H2 << '\n';
}

/// Effects and what the pool and the leave-one-out pools say of them, as files for R.
void write_pools(int studies, double spread) {
  std::mt19937 random{unsigned(studies)};
  std::vector<Effect> effects;
  std::ofstream inputs("effects.tsv"), pools("pools.tsv");
  inputs.precision(17);
  pools.precision(17);
  inputs << "g\tv\n";
  pools << "left_out\tg\tse\tz\tp\tlow\thigh\tQ\tQ_p\ttau2\tI2\tH2\n";
  for (int s = 0; s < studies; ++s) {
    const double g = 0.3 + spread * std::sin(double(random() % 1000));
    effects.push_back({g, 0.01 + double(random() % 1000) / 5000});
    inputs << g << '\t' << effects.back().variance << '\n';
  }
  write_estimate(pools, "0", pool_effects(effects));
  const std::vector<PooledEffect> without = leave_one_out(effects);
  for (std::size_t i = 0; i < without.size(); ++i)
    write_estimate(pools, std::to_string(i + 1), without[i]);
}

int reference(const std::string& mode) {
  return std::system((KVO_RSCRIPT " --vanilla " KVO_EFFECTS " " + mode + " 1>&2").c_str());
}

TEST(Effects, PoolsAgreeWithMetafor) {
  const Test_folder folder;
  const fs::path before = fs::current_path();
  fs::current_path(folder.path());
  for (const auto& [studies, spread] : {std::pair{2, 0.5}, {3, 0.01}, {12, 0.8}, {60, 3.0}}) {
    write_pools(studies, spread);
    EXPECT_EQ(reference("pools"), 0) << studies << " studies";
  }
  fs::current_path(before);
}

TEST(Effects, GlobalsAgreeWithMetafor) {
  const Installation engine;
  for (const bool two_samples : {true, false})
    for (const double spread : {0.1, 2.0}) {
      write_global_values(40, two_samples, spread);
      EXPECT_EQ(engine.run("None = globals").closing(), "d");
      EXPECT_EQ(engine.run("One = globals  + year").closing(), "d");
      EXPECT_EQ(engine.run("Two = globals patients + age, kept").closing(), "d");
      EXPECT_EQ(engine.run("Four = globals + year + dose + patients + age").closing(), "d");
      EXPECT_EQ(reference("globals"), 0) << two_samples << " " << spread;
    }
}

TEST(Effects, MasksAndValuesAgreeWithNibabelAndMetafor) {
  const Installation engine;
  write_studies(9);
  Image atlas;
  atlas.grid = mni_grid();
  atlas.values.resize(atlas.grid.voxels());
  for (std::size_t i = 0; i < atlas.values.size(); ++i)
    atlas.values[i] = float(i % 53) + (i % 3 == 0 ? 0.47F : i % 3 == 1 ? 0.99F : 0.F);
  write_image(engine.share() / "atlas_aal_frw.nii.gz", atlas);
  write_mask(engine.share() / "mask_brain.nii.gz", box_voxels());
  const char* const commands[] = {"pp gray_matter, 0, 10, gray_matter, 1",
                                  "Left_amygdala = mask label, 41",
                                  "26_-12_4 = mask coordinate, 26, -12, 4",
                                  "odd = mask coordinate, -91, 33.7, 109.5",
                                  "extract Left_amygdala",
                                  "extract 26_-12_4",
                                  "extract gray_matter"};
  for (const char* command : commands) EXPECT_EQ(engine.run(command).closing(), "d") << command;
  EXPECT_EQ(read_image("mask_odd.nii.gz").description,
            "KVO 4.31 odd = mask coordinate, -91, 33.7, 109.5");
  EXPECT_THAT(engine.run("odd = mask coordinate, 20, -14, 4").lines,
              testing::Contains(HasSubstr("of them lie outside of the brain")));
  EXPECT_EQ(engine.run("odd = mask coordinate, -91, 33.7, 109.5").closing(), "d");
  EXPECT_EQ(std::system((KVO_PYTHON " " KVO_MASKS " " + engine.share().string()).c_str()), 0);
  for (const char* mask : {"Left_amygdala", "26_-12_4", "gray_matter"})
    EXPECT_EQ(reference("extract extract_" + std::string(mask) + ".txt"), 0) << mask;
  // One study has a pool, and no test; equal studies without effects neither.
  write_studies(1);
  ASSERT_EQ(engine.run(commands[0]).closing(), "d");
  EXPECT_THAT(engine.run("extract gray_matter").lines,
              testing::Contains("  Egger's test: not possible, as there are fewer than 3 studies"));
  write_text("kvo_table.txt", "study n1\na 20\nb 20\nc 20\n");
  for (const char* file : {"a.peaks.txt", "b.peaks.txt", "c.peaks.txt"})
    write_text(file, "# space: MNI\n");
  ASSERT_EQ(engine.run(commands[0]).closing(), "d");
  EXPECT_THAT(engine.run("extract gray_matter").lines,
              testing::Contains(
                  "  Egger's test: not possible, as all studies have the same standard error"));
}

TEST(Effects, BadInputIsRefusedAndChangesNothing) {
  struct Case {
    const char* command;
    std::function<void()> spoil;
    const char* reason;
  };
  const Installation engine;
  Image atlas;
  atlas.grid = mni_grid();
  atlas.values.assign(atlas.grid.voxels(), 41);
  write_image(engine.share() / "atlas_aal_frw.nii.gz", atlas);
  const auto nothing = [] {};
  const auto other_grid = [] {
    Image image;
    image.grid = mni_grid();
    image.grid.to_mm(0, 3) = -88;
    image.values.assign(image.grid.voxels(), 1);
    write_image("mask_x.nii.gz", image);
  };
  const auto table = [](const std::string& text) {
    return [text] { write_text("kvo_table.txt", text); };
  };
  const std::string header = "study n1 n2 mean1 sd1 mean2 sd2 age group\n";
  const Case cases[] = {
      {"x = mask label, 118", nothing,
       "The atlas has no voxel of region 118, 'Left anterior thalamic projections'."},
      {"x = mask label, 500", nothing, "The atlas has no voxel of region 500."},
      {"x = mask coordinate, 32000, 0, 0", nothing,
       "The coordinate 32000, 0, 0 lies outside of the images: no voxel is within 10 mm of it."},
      {"gray_matter = mask label, 41", nothing,
       "The name 'gray_matter' cannot be used: the installation has a mask of that name."},
      {"x = mask label, 41", [] { write_text("mask_x.nii.gz", "a user's own"); },
       "The name 'x' cannot be used: there is already a 'mask_x.nii.gz' that was made elsewhere."},
      {"x = mask label, 41", table("study n1\nmask_x 20\n"),
       "The name 'x' cannot be used: 'mask_x.nii.gz' would be the image of study 'mask_x'."},
      {"extract none", nothing, "There is no mask 'none': neither the share folder nor"},
      {"extract x", other_grid, "'mask_x.nii.gz' is not on the MNI grid of 91 x 109 x 91 voxels"},
      {"extract x",
       [] {
         write_mask("mask_x.nii.gz", {{-60, 0, 0}});
       },
       "The mask 'x' has no voxel in common with the mask 'gray_matter' that the maps"},
      {"extract gray_matter", [] { fs::remove("kvo_pp.txt"); },
       "No maps found. Please run preprocessing and try again."},
      {"extract gray_matter", [] { write_text("study1.peaks.txt", "# space: MNI\n"); },
       "'study1.peaks.txt' has changed since preprocessing. Please run"},
      {"x = globals", nothing, "'kvo_table.txt' has no variable 'mean1'."},
      {"x = globals", table("study n1 mean1 sd1\na 20 5 1\nb 20 5 0\n"),
       "'kvo_table.txt', line 3: sd1 of study 'b' is '0', not a number above 0."},
      {"x = globals", table(header + "a 20 20 1 1 2 -3 5 1\n"),
       "'kvo_table.txt', line 2: sd2 of study 'a' is '-3', not a number above 0."},
      {"x = globals", table("study n1 mean1 sd1\na 20 1e300 1e-300\n"),
       "'kvo_table.txt', line 2: the means and standard deviations of 'a' give no effect size."},
      {"x = globals", table("study n1 mean1 sd1\na 20 NA 1\nb 20 5 NA\n"),
       "No study has a value of each of mean1 and sd1."},
      {"x = globals", table("study n1 n2 mean1 sd1\na 20 20 1 1\n"),
       "'kvo_table.txt' has no variable 'mean2'."},
      {"x = globals + age + age",
       table(header + "a 20 20 1 1 2 3 5 1\nb 20 20 1 1 2 3 6 1\nc 20 20 1 1 2 3 8 1\n"
                      "d 20 20 1 1 2 3 9 1\n"),
       "The term 'age' is in the model twice."},
      {"x = globals group",
       table(header + "a 20 20 1 1 2 3 5 1\nb 20 20 1 1 2 3 6 1\nc 20 20 1 1 2 3 8 1\n"),
       "The term 'group' has the same value in all the studies."},
  };
  for (const Case& c : cases) {
    for (const auto& entry : fs::directory_iterator(".")) fs::remove_all(entry);
    write_studies(4);
    ASSERT_EQ(engine.run("pp gray_matter, 0, 10, gray_matter, 1").closing(), "d");
    c.spoil();
    const auto before = snapshot();
    const Outcome outcome = engine.run(c.command);
    EXPECT_EQ(outcome.status, 1) << c.command;
    EXPECT_THAT(outcome.closing(), testing::StartsWith(std::string("WARNING: ") + c.reason))
        << c.command;
    EXPECT_EQ(snapshot(), before) << c.command << " " << c.reason;
  }
}

TEST(Effects, HostileNamesAreTexts) {
  const Installation engine;
  const std::string names[] = {"<script>alert(1)</script>", "=1+1|x", "@SUM", "a#\"b'&amp;",
                               "\u202Eevil\u00E9"};
  std::string table = "study n1 mean1 sd1\n";
  for (std::string name : names) {
    std::replace(name.begin(), name.end(), '/', '!');
    table += name + " 20 5 2\n";
    write_text(name + ".peaks.txt", "# space: MNI\n24 -14 6 4\n");
  }
  write_text("kvo_table.txt", table);
  write_mask("mask_<b>&.nii.gz", {{24, -14, 6}});
  for (const char* command :
       {"pp gray_matter, 0, 10, gray_matter, 1", "extract <b>&", "<b>& = globals"})
    ASSERT_EQ(engine.run(command).closing(), "d") << command;
  for (const char* base : {"extract_<b>&", "<b>&_globals"}) {
    const std::string html = read_text(base + std::string(".html"));
    EXPECT_THAT(html, HasSubstr("&lt;script&gt;alert(1)&lt;!script&gt;"));
    EXPECT_THAT(html, testing::Not(HasSubstr("<script")));
    EXPECT_THAT(html, testing::Not(HasSubstr("<b>")));
    const std::string csv = read_text(base + std::string(".csv"));
    EXPECT_THAT(csv, HasSubstr("\n'=1+1|x,20,"));
    EXPECT_THAT(csv, HasSubstr("\n'@SUM,20,"));
    EXPECT_THAT(csv, HasSubstr("\n\"a#\"\"b'&amp;\",20,"));
  }
  EXPECT_EQ(csv_line(std::vector<std::string>{"-0.5", "-x", "+1e3", "\tx", "a,b", ""}),
            "-0.5,'-x,+1e3,'\tx,\"a,b\",\n");
  EXPECT_EQ(reference("names extract_'<b>&'.txt"), 0);
}

}  // namespace
