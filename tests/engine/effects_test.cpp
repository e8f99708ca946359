// Analyses of one effect a study: the pools, models and tests against R's metafor, masks and values
// inside them against nibabel, and names from strangers.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <random>

#include "engine/base/csv.h"
#include "engine/model/random_effects.h"
#include "runner.h"

using namespace kvo::model;

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
    table << '\t' << 1990 + random() % 30 << '\t' << between(0, 10) << '\t' << random() % 2 << '\t';
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

/// Enters a new folder beside the working folder.
void enter(const Installation& engine, const std::string& name) {
  const fs::path folder = engine.work().parent_path() / name;
  fs::create_directory(folder);
  fs::current_path(folder);
}

void write_folders_of_pools(const Installation& engine) {
  for (const auto& [studies, spread] : {std::pair{2, 0.5}, {3, 0.01}, {12, 0.8}, {60, 3.0}}) {
    enter(engine, "pools " + std::to_string(studies));
    write_pools(studies, spread);
  }
}

void write_folders_of_globals(const Installation& engine) {
  for (const bool two_samples : {true, false})
    for (const double spread : {0.1, 2.0}) {
      enter(engine, "globals " + std::to_string(two_samples) + std::to_string(spread));
      write_global_values(40, two_samples, spread);
      engine.must_run({"None = globals", "One = globals  + year",
                       "Two = globals patients + age, kept",
                       "Four = globals + year + dose + patients + age"});
    }
}

/// With masks, which are compared with nibabel's.
void write_folder_of_extractions(const Installation& engine) {
  enter(engine, "extract");
  write_studies(9);
  Image atlas = image_of(0);
  for (std::size_t i = 0; i < atlas.values.size(); ++i)
    atlas.values[i] = float(i % 53) + (i % 3 == 0 ? 0.47F : i % 3 == 1 ? 0.99F : 0.F);
  write_image(engine.share() / "atlas_aal_frw.nii.gz", atlas);
  write_mask(engine.share() / "mask_brain.nii.gz", box_voxels());
  EXPECT_THAT(engine.run("odd = mask coordinate, 20, -14, 4").lines,
              testing::Contains(HasSubstr("of them lie outside of the brain")));
  engine.must_run({"pp gray_matter, 0, 10, gray_matter, 1", "Left_amygdala = mask label, 41",
                   "26_-12_4 = mask coordinate, 26, -12, 4",
                   "odd = mask coordinate, -91, 33.7, 109.5", "extract Left_amygdala",
                   "extract 26_-12_4", "extract gray_matter"});
  EXPECT_EQ(read_image("mask_odd.nii.gz").description,
            "KVO 4.31 odd = mask coordinate, -91, 33.7, 109.5");
  EXPECT_EQ(std::system((KVO_PYTHON " '" KVO_MASKS "' '" + engine.share().string() + "'").c_str()),
            0);
}

/// Studies and a mask whose names would do harm if they were taken for anything but names.
void write_folder_of_names(const Installation& engine) {
  enter(engine, "names");
  const std::string names[] = {"<script>alert(1)<!script>", "=1+1|x", "@SUM", "a#\"b'&amp;",
                               "\u202Eevil\u00E9"};
  std::string table = "study n1 mean1 sd1\n";
  for (const std::string& name : names) {
    table += name + " 20 5 2\n";
    write_text(name + ".peaks.txt", "# space: MNI\n24 -14 6 4\n");
  }
  write_text("kvo_table.txt", table);
  write_mask("mask_<b>&.nii.gz", {{24, -14, 6}});
  engine.must_run({"pp gray_matter, 0, 10, gray_matter, 1", "extract <b>&", "<b>& = globals"});
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
}

/// All in one test, as loading metafor takes longer than the rest.
TEST(Effects, AgreeWithMetaforAndNibabel) {
  const Installation engine;
  write_folders_of_pools(engine);
  write_folders_of_globals(engine);
  write_folder_of_extractions(engine);
  write_folder_of_names(engine);
  fs::current_path(engine.work().parent_path());
  EXPECT_EQ(std::system(KVO_RSCRIPT " --vanilla '" KVO_EFFECTS "' 1>&2"), 0);
  fs::current_path(engine.work());
}

TEST(Effects, HaveNoTestForAsymmetryOfTooFewOrEqualStudies) {
  const Installation engine;
  const auto extracted = [&] {
    engine.must_run({"pp gray_matter, 0, 10, gray_matter, 1"});
    return engine.run("extract gray_matter").lines;
  };
  write_studies(1);
  EXPECT_THAT(extracted(),
              testing::Contains("  Egger's test: not possible, as there are fewer than 3 studies"));
  write_text("kvo_table.txt", "study n1\na 20\nb 20\nc 20\n");
  for (const char* file : {"a.peaks.txt", "b.peaks.txt", "c.peaks.txt"})
    write_text(file, "# space: MNI\n");
  EXPECT_THAT(extracted(),
              testing::Contains(
                  "  Egger's test: not possible, as all studies have the same standard error"));
}

TEST(Csv, IsNoFormula) {
  EXPECT_EQ(csv_line(std::vector<std::string>{"-0.5", "-x", "+1e3", "\tx", "a,b", ""}),
            "-0.5,'-x,+1e3,'\tx,\"a,b\",\n");
}

}  // namespace
