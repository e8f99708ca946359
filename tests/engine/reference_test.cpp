// Numbers against R's metafor: the effects of each study from its peaks, the maps of the mean and
// of linear models, pools and models of one effect a study, tests for small-study effects. Masks
// and the values inside them against nibabel. All in one test, as loading metafor takes longer than
// the rest.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <random>
#include <sstream>

#include "engine/base/refusal.h"
#include "engine/images/mask.h"
#include "engine/model/random_effects.h"
#include "runner.h"
#include "table.h"

using namespace kvo::base;
using namespace kvo::images;
using namespace kvo::model;

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

/// Enters a new folder beside the working folder.
void enter(const Installation& engine, const std::string& name) {
  fs::create_directory(engine.work().parent_path() / name);
  fs::current_path(engine.work().parent_path() / name);
}

/// The maps' values in the box, as a table.
std::string values_of(const std::vector<std::string>& maps) {
  std::ostringstream table;
  table.precision(17);
  table << "x\ty\tz";
  std::vector<Image> images;
  for (const std::string& map : maps) {
    table << '\t' << map;
    images.push_back(read_image(map + ".nii.gz"));
  }
  for (const auto& voxel : box_voxels()) {
    table << '\n' << voxel[0] << '\t' << voxel[1] << '\t' << voxel[2];
    for (const Image& image : images) table << '\t' << value_at(image, voxel);
  }
  return table.str() + "\n";
}

/// One- and two-sample studies, small and large, in both spaces, with known and unknown heights,
/// overlapping peaks, peaks between voxels, beyond the mask and none at all, and an image. Then the
/// same studies with images alone.
void write_folders_of_maps(const Installation& engine) {
  enter(engine, "peaks");
  write_text("kvo_table.txt",
             "study,n1,n2,threshold_t,threshold_p,adults,age,micrograms,tesla,group\n"
             "one,12,NA,NA,0.005,1,31.5,2.1e6,-0.0012,1\n"
             "two,15,17,NA,NA,1,24,5.5e6,0.0031,0\n"
             "small,3,NA,NA,NA,0,61.25,1.4e6,0.0007,0\n"
             "large,20000,10000,NA,NA,1,43,9.7e6,-0.0044,1\n"
             "unknown,18,NA,NA,NA,NA,38,3.2e6,0.0058,1\n"
             "threshold,24,22,2.7,NA,1,NA,4.8e6,0.0026,0\n"
             "no=thing+,20,20,NA,NA,1,52,NA,-0.0039,1\n"
             "talairach,30,NA,NA,NA,1,29.75,7.3e6,-0.0005,0\n"
             "image,14,16,NA,NA,1,47,6.6e6,0.0019,1\n");
  const std::map<std::string, const char*> peaks = {
      {"one", "# space: MNI\n# comment\n24 -14 6 4.25 # the largest\n32,-10,4,-3.5\n22 -8 2 n\n"},
      {"two", "# space: MNI\n20.7 -11.3 3.1 +3.75\n24 -12 4 3.1\n22 -14 8 2.9\n24 -12 4 5.5\n"},
      {"small", "# SPACE: mni\r\n28 -16 2 7.5\r\n"},
      {"large", "# space: MNI\n26 -8 10 3\n"},
      {"unknown", "# space: MNI\n30 -18 2 p\n22 -10 8 n\n"},
      {"threshold", "# space: MNI\n26 -14 6 p\n38 -14 6 n\n90 -100 60 4\n"},
      {"no=thing+", "# space: MNI\n"},
      {"talairach", "24 -14 6 4.8\n# space: Talairach\n"}};
  write_t_image("image", 3);
  std::vector<std::string> of_studies;
  for (const auto& [study, lines] : peaks) {
    write_text(study + ".peaks.txt", lines);
    for (const char* suffix : {"_g", "_var"}) of_studies.push_back("pp/" + study + suffix);
  }
  const char* const preprocess = "pp gray_matter, 0, 8, gray_matter, 1";
  engine.must_run({preprocess});
  write_text("voxels.tsv", values_of(of_studies));

  const std::string table = read_text("kvo_table.txt");
  enter(engine, "maps");
  write_text("kvo_table.txt", table);
  int seed = 0;
  for (const auto& [study, lines] : peaks) write_t_image(study, ++seed);
  write_t_image("image", 0);
  engine.must_run({preprocess, "All = mean", "Adults = mean adults", "One = lm micrograms",
                   "Two = lm age + micrograms, adults",
                   "Four = lm age + micrograms + tesla + group"});
  std::vector<std::string> maps = {"pp/image_g", "pp/image_var"};
  maps.insert(maps.end(), of_studies.begin(), of_studies.end());
  for (const std::string name : {"All", "Adults", "One_0", "Two_00", "Four_0000"})
    for (const char* suffix : {"_g", "_var", "_z", "_ci_low", "_ci_high", "_tau2", "_I2", "_Q"})
      maps.push_back(name + suffix);
  for (const std::string name :
       {"One_1", "Two_10", "Two_01", "Four_1000", "Four_0100", "Four_0010", "Four_0001"})
    for (const char* suffix : {"_g", "_var", "_z", "_ci_low", "_ci_high"})
      maps.push_back(name + suffix);
  write_text("voxels.tsv", values_of(maps));
}

/// Effects, and the pool without each in turn.
void write_folder_of_pools(const Installation& engine) {
  enter(engine, "pools");
  std::mt19937 random{12};
  std::vector<Effect> effects;
  std::ostringstream inputs, pools;
  inputs.precision(17);
  pools.precision(17);
  inputs << "g\tv\n";
  pools << "g\tse\tp\tQ\ttau2\n";
  for (int s = 0; s < 12; ++s) {
    effects.push_back(
        {0.3 + 0.8 * std::sin(double(random() % 1000)), 0.01 + double(random() % 1000) / 5000});
    inputs << effects.back().g << '\t' << effects.back().variance << '\n';
  }
  for (const auto& [mean, heterogeneity, prediction, weights] : leave_one_out(effects))
    pools << mean.value << '\t' << mean.se << '\t' << mean.p << '\t' << heterogeneity.Q << '\t'
          << heterogeneity.tau2 << '\n';
  write_text("effects.tsv", inputs.str());
  write_text("pools.tsv", pools.str());
}

/// A table with means of one or two samples, covariates of very different scales, and gaps.
std::string table_of_globals(int studies, bool two_samples, double spread) {
  std::mt19937 random(two_samples ? 1040 : 40);
  const auto between = [&](double low, double high) {
    return low + (high - low) * double(random()) / double(std::mt19937::max());
  };
  const auto unless = [](bool missing, double value) {
    return missing ? "NA" : std::to_string(value);
  };
  std::ostringstream table;
  table << "study\tn1\tmean1\tsd1" << (two_samples ? "\tn2\tmean2\tsd2" : "")
        << "\tyear\tdose\tpatients\tage\tkept\n";
  for (int s = 0; s < studies; ++s) {
    table << "s" << s << '\t' << 8 + random() % 60 << '\t' << 5 + spread * between(-1, 1) << '\t'
          << unless(two_samples && s % 7 == 3, between(1, 3));
    if (two_samples)
      table << '\t' << 8 + random() % 60 << '\t' << between(4, 5) << '\t' << between(1, 3);
    table << '\t' << 1990 + random() % 30 << '\t' << between(0, 10) << '\t' << random() % 2 << '\t'
          << unless(s % 9 == 4, between(20, 70)) << '\t' << (s % 5 == 0 ? "0" : "1") << '\n';
  }
  return table.str();
}

void write_folders_of_globals(const Installation& engine) {
  for (const bool two_samples : {true, false})
    for (const double spread : {0.1, 2.0}) {
      enter(engine, "globals " + std::to_string(two_samples) + std::to_string(spread));
      write_text("kvo_table.txt", table_of_globals(40, two_samples, spread));
      engine.must_run({"None = globals", "One = globals  + year",
                       "Two = globals patients + age, kept",
                       "Four = globals + year + dose + patients + age", "NoneDL = globals , , DL",
                       "TwoDL = globals patients+age,kept, DL",
                       "FourDL = globals year + dose + patients + age,, DL"});
    }
}

/// The models of data sets of metafor: effects and variances, and terms in the further columns.
void write_folder_of_sets(const Installation& engine) {
  enter(engine, "sets");
  ASSERT_EQ(std::system(KVO_RSCRIPT " --vanilla '" KVO_REFERENCE "' sets 1>&2"), 0);
  int sets = 0;
  for (const auto& [path, text] : snapshot()) {
    std::istringstream lines(text);
    std::string line, name;
    std::getline(lines, line);
    std::istringstream header(line);
    std::vector<Term> terms;
    while (header >> name) terms.push_back({name, {}});
    for (double value = 0; lines >> value;) {
      terms[0].values.push_back(value);
      for (std::size_t t = 1; t < terms.size() && lines >> value; ++t)
        terms[t].values.push_back(value);
    }
    const std::vector<double> g = terms[0].values, v = terms[1].values;
    terms.erase(terms.begin(), terms.begin() + 2);
    std::vector<Effect> effects;
    for (std::size_t s = 0; s < g.size(); ++s) effects.push_back({g[s], v[s]});
    for (const bool reml : {true, false})
      for (const bool with_terms : {true, false}) {
        const Method method = reml ? Method::restricted_likelihood : Method::moments;
        const Design design = make_design(
            with_terms ? std::span<const Term>(terms) : std::span<const Term>(), g.size());
        const ModelFit fit = fit_model(design, g, v, method);
        std::ostringstream out;
        out.precision(17);
        for (const Estimate& b : fit.coefficients)
          out << b.value << ' ' << b.se << ' ' << b.z << ' ' << b.p << ' ' << b.interval.low << ' '
              << b.interval.high << '\n';
        const auto& [tau2, I2, H2] = fit.residual;
        out << tau2 << ' ' << I2 << ' ' << H2 << ' ' << fit.QE << ' ' << fit.QE_p << '\n';
        const ScaleIntervals intervals = scale_intervals(design, g, v).value();
        for (const Scales& scales : {intervals.low, intervals.high})
          out << scales.tau2 << ' ' << scales.I2 << ' ' << scales.H2 << '\n';
        if (with_terms) out << fit.QM << ' ' << fit.QM_p << '\n';
        const std::optional<Interval> prediction = pool_effects(effects, method).prediction;
        if (!with_terms && reml) out << prediction->low << ' ' << prediction->high << '\n';
        write_text(path + (reml ? ".REML" : ".DL") + (with_terms ? ".terms" : ".mean"), out.str());
      }
    ++sets;
  }
  EXPECT_EQ(sets, 9);
}

/// The voxels of a mask, which are those that `inside` is true of by their place in mm.
std::vector<std::size_t> voxels_of(const fs::path& mask, const auto& inside) {
  const Image image = read_image(mask);
  std::vector<std::size_t> voxels;
  int wrong = 0;
  for (std::uint32_t v = 0; v < image.values.size(); ++v) {
    const auto [x, y, z] = mm_of(mni_grid().voxel(v));
    wrong += (image.values[v] > 0) == inside(v, Eigen::Vector3d(x, y, z)) ? 0 : 1;
    if (image.values[v] > 0) voxels.push_back(v);
  }
  EXPECT_EQ(wrong, 0) << mask;
  return voxels;
}

/// Pools of what is extracted by masks, which are checked here, and so are the values inside them.
void write_folder_of_extractions(const Installation& engine) {
  enter(engine, "extract");
  write_studies(9);
  for (int s = 0; s < 9; ++s) {
    fs::remove("study" + std::to_string(s) + ".peaks.txt");
    write_t_image("study" + std::to_string(s), s);
  }
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
  const auto within_10_mm_of = [](double x, double y, double z) {
    return [=](std::size_t, const Eigen::Vector3d& mm) {
      return (mm - Eigen::Vector3d(x, y, z)).norm() <= 10;
    };
  };
  voxels_of("mask_odd.nii.gz", within_10_mm_of(-91, 33.7, 109.5));
  voxels_of("mask_26_-12_4.nii.gz", within_10_mm_of(26, -12, 4));
  std::vector<std::size_t> used = voxels_of(
      "mask_Left_amygdala.nii.gz", [](std::size_t v, const auto&) { return v % 53 == 41; });
  const Image analysis = read_image(engine.share() / "mask_gray_matter.nii.gz");
  std::erase_if(used, [&](std::size_t v) { return analysis.values[v] == 0; });
  std::istringstream lines(read_text("extract_Left_amygdala.txt"));
  std::string line, study, n;
  std::getline(lines, line);
  for (double g = 0, var = 0, se = 0, weight = 0; lines >> study >> n >> g >> var >> se >> weight;)
    for (const auto& [value, kind] : {std::pair(g, "_g"), {var, "_var"}}) {
      const Image map = read_image("pp/" + study + kind + ".nii.gz");
      double sum = 0;
      for (const std::size_t v : used) sum += double(map.values[v]);
      EXPECT_NEAR(value, sum / double(used.size()), 1e-7 * std::abs(value)) << study << kind;
    }
}

/// Studies, maps and a mask whose names would do harm if they were taken for anything but names.
void write_folder_of_names(const Installation& engine) {
  enter(engine, "names");
  std::string table = "study n1 mean1 sd1\n";
  for (const std::string name :
       {"<script>alert(1)<!script>", "=1+1|x", "-x", "a#\"b'&amp;", "\u202Eevil\u00E9"}) {
    table += name + " 20 5 2\n";
    write_text(name + ".peaks.txt", "# space: MNI\n24 -14 6 4\n");
  }
  write_text("kvo_table.txt", table);
  write_mask("mask_<b>&.nii.gz", {{24, -14, 6}});
  engine.must_run({"pp gray_matter, 0, 10, gray_matter, 1", "extract <b>&", "<b>& = globals",
                   "<b>&;$(x)|%n = mean", "@SUM = mean", "threshold @SUM, p, 0.5, 0, 1",
                   "threshold <b>&;$(x)|%n, p, 0.5, 0, 1",
                   "multi @SUM, <b>&;$(x)|%n, 0.5, 0.5, 1, 0, 0, 0.1"});
  int reports = 0;
  for (const auto& [path, text] : snapshot()) {
    if (!path.ends_with(".html")) continue;
    EXPECT_THAT(text, testing::Not(HasSubstr("<b>&")));
    if (path == "./index.html") continue;
    if (path.find("_multi_") == std::string::npos) {
      EXPECT_THAT(text, HasSubstr(" of the study table took part.")) << path;
    }
    ++reports;
    const std::string csv = read_text(path.substr(0, path.size() - 4) + "csv");
    if (path.starts_with("./@SUM")) {
      EXPECT_THAT(csv, HasSubstr("\n'@SUM"));
    }
    if (text.find("Forest plot") == std::string::npos) continue;
    EXPECT_THAT(text, HasSubstr("&lt;script&gt;alert(1)&lt;!script&gt;"));
    for (const char* cell : {"'=1+1|x", "'-x", "\"a#\"\"b'&amp;\""})
      EXPECT_THAT(csv, HasSubstr("\n" + std::string(cell) + ",20,"));
  }
  EXPECT_EQ(reports, 5);
}

TEST(Reference, AgreesWithMetafor) {
  const Installation engine;
  write_folders_of_maps(engine);
  write_folder_of_pools(engine);
  write_folders_of_globals(engine);
  write_folder_of_sets(engine);
  write_folder_of_extractions(engine);
  write_folder_of_names(engine);
  fs::current_path(engine.work().parent_path());
  EXPECT_EQ(std::system(KVO_RSCRIPT " --vanilla '" KVO_REFERENCE "' 1>&2"), 0);
  fs::current_path(engine.work());
}

/// What a few effects come to, in words where something is not to be told from them.
TEST(Reference, SaysWhatCannotBeEstimated) {
  const Installation engine;
  struct {
    const char *command, *studies;  ///< "n1 mean1 sd1" of each, between "|"
    std::vector<std::string> said, unsaid;
  } const cases[] = {
      {"x = globals",
       "20 5 5",
       {"single study; interval and test by the normal", "# heterogeneity = not to be measured",
        "# small_study = not possible, as there are fewer than 3 studies"},
       {"tau2", "t_df", "# Q", "QM", "prediction", "nan"}},
      {"x = globals",
       "20 5 5|20 2 5",
       {"\tt\tp", "# t_df = 1\n", "# prediction_low_95 = ", "# tau2_high_95 = "},
       {"nan", "QM", "F_p"}},
      // Nothing is left for Hartung and Knapp's intervals.
      {"x = globals",
       "20 5 5|20 5 5|20 5 5",
       {"as nothing scatters", "\tz\tp", "# tau2 = 0\n",
        "# intervals = none, as the effects scatter",
        "# small_study = not possible, as all studies have samples of the same size"},
       {"t_df", "prediction", "nan", "tau2_low"}},
      {"x = globals n1",
       "20 5 5|20 5 5|30 5 5|30 5 5",
       {"as nothing scatters", "# QM = "},
       {"R2", "t_df", "# F", "nan", "prediction"}},
      {"x = globals , , DL",
       "20 5 5|40 5 9|30 1 5",
       {"DL: ", "DerSimonian", "\tz\tp", "# small_study_z = ", "# prediction_low_95 = "},
       {"REML", "t_df", "nan"}},
      {"x = globals",
       "20 5000 5|20 -5000 5|30 4000 6|12 0 1",
       {"# I2_high_95 = ", "# t_df = 3"},
       {"nan", "inf"}},
  };
  for (const auto& [command, studies, said, unsaid] : cases) {
    std::string table = "study n1 mean1 sd1\n";
    for (const std::string& study : split(studies, "|", 9))
      if (!study.empty()) table += "s" + std::to_string(table.size()) + " " + study + "\n";
    write_text("kvo_table.txt", table);
    engine.must_run({command});
    const std::string text = read_text("x_globals.txt");
    for (const std::string& part : said) EXPECT_THAT(text, HasSubstr(part)) << studies;
    for (const std::string& part : unsaid)
      EXPECT_THAT(text, testing::Not(HasSubstr(part))) << studies;
  }
  const std::vector<double> g = {1e200, -1e200, 3}, v = {1, 2, 3};
  EXPECT_THROW(fit_model(make_design({}, 3), g, v, Method::restricted_likelihood), Refusal);
}

TEST(Reference, HasNoTestForSmallStudiesOfTooFewOrEqualStudies) {
  const Installation engine;
  const std::pair<int, std::string> cases[] = {{1, "there are fewer than 3 studies"},
                                               {3, "all studies have samples of the same size"}};
  for (const auto& [studies, reason] : cases) {
    std::string table = "study n1\n";
    for (int s = 0; s < studies; ++s) {
      table += "s" + std::to_string(s) + " 20\n";
      write_t_image("s" + std::to_string(s), 1);
    }
    write_text("kvo_table.txt", table);
    engine.must_run({"pp gray_matter, 0, 10, gray_matter, 1"});
    EXPECT_THAT(engine.run("extract gray_matter").lines,
                testing::Contains("  Small-study effects: not possible, as " + reason));
  }
}

}  // namespace
