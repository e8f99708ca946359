// Whole commands: what they leave and say, and what is left when they do not come to their end.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <omp.h>
#include <signal.h>
#include <unistd.h>

#include <sstream>

#include "engine/base/progress.h"
#include "runner.h"

using namespace kvo::images;

namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using Names = std::vector<std::string>;

const std::string preprocess = "pp gray_matter, 0.0, 10, gray_matter, ";

Names first_words(const std::string& path) {
  Names names;
  std::istringstream lines(read_text(path));
  for (std::string line; std::getline(lines, line);)
    names.push_back(line.substr(0, line.find('\t')));
  return names;
}

/// The endings of all maps of that name.
Names kinds_of(const std::string& name) {
  Names kinds;
  for (const auto& [path, content] : snapshot())
    if (path.starts_with("./" + name + "_") && path.ends_with(".nii.gz"))
      kinds.push_back(path.substr(name.size() + 3, path.size() - name.size() - 10));
  return kinds;
}

/// What an analysis leaves, with what there is once for a model.
Names all_kinds(bool of_model) {
  Names kinds = {"TFCE", "ci_high", "ci_low", "g", "info", "var", "z"};
  if (of_model) kinds.insert(kinds.end(), {"I2", "Q", "tau2"});
  for (const std::string p : {"p", "pFWE", "pTFCE", "pcluster", "q"})
    kinds.insert(kinds.end(), {p, "n_" + p, "both_" + p});
  std::sort(kinds.begin(), kinds.end());
  return kinds;
}

TEST(Run, LeavesTheMapsAndListsOfTheMetaAnalysis) {
  const Installation engine;
  write_studies(3);
  EXPECT_EQ(engine.run(preprocess + "20").closing(), "d");
  EXPECT_EQ(read_text("kvo_maps.txt"), "");
  EXPECT_THAT(first_words("kvo_nd.txt"), ElementsAre("name"));
  // A jackknife takes the value of one study away.
  write_text("kvo_table.txt",
             "study n1 n2 TEMPORAL_COLUMN_FOR_JACKKNIFE_ANALYSIS\n"
             "study0 12 NA 1\nstudy1 13 15 NA\nstudy2 14 15 1\n");
  engine.must_run(
      {"MyMean = mean", "Other = mean TEMPORAL_COLUMN_FOR_JACKKNIFE_ANALYSIS", "MyMean = mean"});
  EXPECT_EQ(read_text("kvo_maps.txt"), "MyMean\nOther\n");
  EXPECT_THAT(first_words("kvo_nd.txt"),
              ElementsAre("name", "Other", "Other_n", "Other_pFWE", "Other_pcluster", "Other_pTFCE",
                          "Other_q", "MyMean", "MyMean_n", "MyMean_pFWE", "MyMean_pcluster",
                          "MyMean_pTFCE", "MyMean_q"));
  EXPECT_EQ(read_text("kvo_analyses.txt"),
            "map\tstudies\tparticipants\tcommand\tleft_out\n"
            "Other\t2\t41\tOther = mean TEMPORAL_COLUMN_FOR_JACKKNIFE_ANALYSIS\tstudy1\n"
            "MyMean\t3\t69\tMyMean = mean\tNA\n");
  const Names kinds = all_kinds(true);
  EXPECT_EQ(kinds_of("MyMean"), kinds);
  for (const std::string& kind : kinds) {
    const Image image = read_image("MyMean_" + kind + ".nii.gz");
    EXPECT_TRUE(image.grid == mni_grid()) << kind;
    EXPECT_EQ(image.space, Space::mni) << kind;
    EXPECT_EQ(image.description, "KVO 4.31 MyMean = mean") << kind;
  }
  EXPECT_EQ(value_at(read_image("MyMean_p.nii.gz"), {0, 60, 0}), 1) << "outside of the mask";
  write_image(engine.share() / "atlas_aal_frw.nii.gz", image_of(41));
  engine.must_run({"threshold Other, p, 0.5, 0, 1", "threshold MyMean, p, 0.5, 0, 1"});
  EXPECT_THAT(read_text("Other_z_p_0.50000_0.000_1.html"),
              AllOf(HasSubstr("(without &#39;study1&#39;)"), Not(HasSubstr("subgroup"))));
  EXPECT_THAT(
      read_text("MyMean_z_p_0.50000_0.000_1.html"),
      AllOf(Not(HasSubstr("(without")), HasSubstr("All studies of the study table took part."),
            HasSubstr("<td>study1</td><td class=\"number\">13 + 15</td><td>")));
  EXPECT_THAT(read_text("Other_z_p_0.50000_0.000_1.html"),
              AllOf(HasSubstr("2 of the 3 studies of the study table"),
                    Not(HasSubstr("<td>study1</td><td class=\"number\">"))));
  // A batch repeats the run when the variable of the jackknife has gone.
  write_text("kvo_table.txt", "study n1 n2\nstudy0 12 NA\nstudy1 13 15\nstudy2 14 15\n");
  engine.must_run({"MyMeanJKstudy1 = mean TEMPORAL_COLUMN_FOR_JACKKNIFE_ANALYSIS"});
  EXPECT_TRUE(read_image("MyMeanJKstudy1_g.nii.gz").values == read_image("Other_g.nii.gz").values);
  EXPECT_THAT(read_text("kvo_analyses.txt"),
              HasSubstr("\nMyMeanJKstudy1\t2\t41\tMyMeanJKstudy1 = mean "
                        "TEMPORAL_COLUMN_FOR_JACKKNIFE_ANALYSIS\tstudy1\n"));
  EXPECT_THAT(engine.run("NoneJKstudy1 = mean TEMPORAL_COLUMN_FOR_JACKKNIFE_ANALYSIS").closing(),
              HasSubstr("the folder has no mean that says of which studies"));
  for (const std::string name : {"MyMean", "Other"})
    fs::remove(name + "_z_p_0.50000_0.000_1.nii.gz");

  // A new meta-analysis takes the place of the old one; what is not ours stays, and what a
  // stranger's list names.
  write_text("Other_g.nii.gz", "a user's own");
  write_text("pp/notes.txt", "a user's own");
  fs::copy_file("MyMean_g.nii.gz", "../share/x_g.nii.gz");
  write_text("kvo_maps.txt", "MyMean\nOther\n../share/x\n/etc/passwd\nmy own\n..\n");
  write_studies(2);
  EXPECT_EQ(engine.run(preprocess + "19").closing(), "d");
  EXPECT_TRUE(fs::exists("../share/x_g.nii.gz"));
  EXPECT_EQ(read_text("kvo_maps.txt"), "");
  EXPECT_TRUE(fs::exists("pp/study1_g.nii.gz"));
  EXPECT_FALSE(fs::exists("pp/study2_g.nii.gz"));
  EXPECT_EQ(kinds_of("MyMean"), Names());
  EXPECT_EQ(kinds_of("Other"), Names{"g"});
  EXPECT_EQ(read_text("Other_g.nii.gz") + read_text("pp/notes.txt"), "a user's owna user's own");
  EXPECT_EQ(engine.run("MyMean = mean").closing(), "d");
  EXPECT_FALSE(fs::exists("MyMean_pFWE.nii.gz")) << "with too few randomizations for it";
}

TEST(Run, LeavesTheMapsOfEachCoefficientAndOfTheModel) {
  const Installation engine;
  write_studies(10);
  write_text("kvo_table.txt", table_with_variables);
  ASSERT_EQ(engine.run(preprocess + "20").closing(), "d");
  EXPECT_THAT(engine.run("M = lm few").lines,
              Contains("  7 studies are left out, as they have no value of few: study3, study4, "
                       "study5, study6, study7 and 2 more"));
  engine.must_run({"M_10 = mean"});
  EXPECT_THAT(engine.run("M = lm + age+dose").lines,
              Contains("  1 study is left out, as it has no value of age or dose: study9"));
  EXPECT_EQ(read_text("kvo_maps.txt"), "M_0\nM_1\nM_10\nM_00\nM_01\n");
  EXPECT_THAT(
      read_text("kvo_analyses.txt"),
      testing::AllOf(HasSubstr("\nM_1\t3\t"), HasSubstr("\nM_00\t9\t234\tM = lm age + dose\tNA\n"),
                     HasSubstr("\nM_01\t9\t"), Not(HasSubstr("mean"))));
  EXPECT_THAT(
      read_text("kvo_nd.txt"),
      testing::AllOf(HasSubstr("\nM_10_q\t"), HasSubstr("\nM_10_n\t"), HasSubstr("\nM_1\t")));
  EXPECT_EQ(kinds_of("M_00"), all_kinds(true));
  for (const std::string name : {"M_10", "M_01"}) {
    EXPECT_EQ(kinds_of(name), all_kinds(false));
    EXPECT_EQ(read_image(name + "_n_p.nii.gz").description, "KVO 4.31 M = lm age + dose");
  }
}

TEST(Run, SaysHowItGoesOn) {
  const Installation engine;
  write_studies(4);
  write_text("study3.peaks.txt", "# space: MNI\n24 -14 6 4\n-60 0 0 4\n22 -24 4 3\n");
  for (const std::string& command : {preprocess + "100", std::string("MyMean = mean")}) {
    const Outcome outcome = engine.start(command).finish();
    EXPECT_EQ(outcome.status, 0);
    bool in_action = false;
    for (std::size_t i = 0; i + 1 < outcome.lines.size(); ++i) {
      const std::string& line = outcome.lines[i];
      ASSERT_FALSE(line.empty());
      if (line[0] == 'a' || line[0] == 'o') in_action = line[0] == 'a';
      const bool dot_or_end = line == "." || line == "o";
      EXPECT_TRUE(dot_or_end || line[0] == 'a' || (line.starts_with("  ") && !in_action)) << line;
    }
    EXPECT_EQ(outcome.closing(), "d");
  }
  EXPECT_THAT(engine.run(preprocess + "1").lines,
              Contains("  study3: 2 of 3 peaks lie outside of the mask, 1 of them too far away to "
                       "reach it"));
  write_text("kvo_table.txt",
             "study n1 n2 kept\nstudy0 12 NA 1\nstudy1 13 15 NA\nstudy2 14 15 0\nstudy3 15 NA 1\n");
  EXPECT_THAT(engine.run("MyMean = mean kept").lines,
              Contains("  The filter leaves out 2 of 4 studies"));
  EXPECT_THAT(engine.start("help").finish().lines, Contains("  NAME = mean [filter]"));

  const std::pair<int, const char*> rows[] = {
      {20, "  study19: 1 of 1 peaks lies outside of the mask"},
      {21, "  \u2026 and 1 more study with peaks outside of the mask"},
      {25, "  \u2026 and 5 more studies with peaks outside of the mask"}};
  for (const auto& [studies, last] : rows) {
    write_studies(studies);
    for (int s = 0; s < studies; ++s)
      write_text("study" + std::to_string(s) + ".peaks.txt", "# space: MNI\n18 -14 6 4\n");
    Names lines = engine.run(preprocess + "1").lines;
    std::erase_if(lines, [](const std::string& line) { return !line.starts_with("  "); });
    EXPECT_EQ(int(lines.size()), std::min(studies, 21));
    EXPECT_EQ(lines.back(), last);
  }
}

TEST(Run, GivesTheSameBytesAgainAndWithAnyNumberOfThreads) {
  const Installation engine;
  Image tissue = image_of(0);
  for (std::size_t v = 0; v < tissue.values.size(); ++v) tissue.values[v] = float(v % 7);
  write_image(engine.share() / "cor_gray_matter.nii.gz", tissue);
  std::map<std::string, std::string> first;
  for (const char* pp :
       {"pp gray_matter, 1, 10, gray_matter, 20", "pp gray_matter, 0, 10, gray_matter, 20"}) {
    first.clear();
    for (const int threads : {1, 2, 5}) {
      remove_everything();
      write_studies(5);
      for (const char* study : {"study2", "study3"}) {
        fs::remove(std::string(study) + ".peaks.txt");
        write_t_image(study, study[5]);
      }
      const auto with_threads = [&] { omp_set_num_threads(threads); };
      engine.run(pp, with_threads);
      EXPECT_THAT(
          engine.run("MyMean = mean", with_threads).lines,
          testing::IsSupersetOf(
              {"aMoving peaks to random places and turning images round at random (20 times)",
               "d"}));
      EXPECT_EQ(engine.run("MyModel = lm n1", with_threads).closing(), "d");
      if (first.empty()) first = snapshot();
      EXPECT_TRUE(snapshot() == first) << pp << " with " << threads << " threads";
    }
  }
  // Another seed gives other p values, and nothing else.
  std::string record = read_text("kvo_pp.txt");
  write_text("kvo_pp.txt", record.replace(record.find("seed = 1"), 8, "seed = 2"));
  engine.must_run({"MyMean = mean"});
  EXPECT_EQ(read_text("MyMean_z.nii.gz"), first["./MyMean_z.nii.gz"]);
  EXPECT_NE(read_text("MyMean_p.nii.gz"), first["./MyMean_p.nii.gz"]);
}

TEST(Run, SaysWhenRandomizationsAreTooFewForAThreshold) {
  const Installation engine;
  write_image(engine.share() / "atlas_aal_frw.nii.gz", image_of(41));
  write_studies(5);
  engine.must_run({"pp gray_matter, 0, 10, gray_matter, 20", "M = mean"});
  EXPECT_THAT(engine.run("threshold M_pFWE, p, 0.05, 0, 1").lines,
              testing::Contains(
                  "  With 20 randomizations a p (FWE) of 0.050 has a standard error of 0.049; 76 "
                  "would make it half of the p."));
  EXPECT_THAT(engine.run("threshold M_both_pFWE, p, 0.4, 0, 1").lines,
              testing::Not(testing::Contains(testing::HasSubstr("standard error"))));
  for (const auto& [seconds, text] : {std::pair(31.0, "about 40 s left"),
                                      {100.0, "about 2 min left"},
                                      {9000.0, "about 2.5 h left"}})
    EXPECT_EQ(kvo::base::time_left_text(seconds), text);
}

/// With parts that other processes have made, whatever they are, and left over ones.
TEST(Run, BringsPartsOfTheRandomizationsTogetherToTheSameBytes) {
  const Installation engine;
  write_studies(5);
  engine.must_run({"pp gray_matter, 0, 10, gray_matter, 20"});
  engine.save();
  engine.must_run({"MyMean = mean", "MyModel = lm n1"});
  const auto whole = snapshot();
  engine.restore();
  const auto run_part = [&](const std::string& command, const char* part) {
    return engine.run(command, [=] { setenv("KVO_SHARD", part, 1); });
  };
  const auto before = snapshot();
  for (const char* command : {"MyMean = mean", "MyModel = lm n1"})
    for (const char* part : {"1/3", "3/3", "1/6"})
      EXPECT_EQ(run_part(command, part).closing(), "d") << command << part;
  EXPECT_EQ(snapshot().size(), before.size() + 6);
  EXPECT_THAT(
      engine.run("MyMean = mean").lines,
      testing::IsSupersetOf(
          {"aMoving peaks to random places (7 of 20 times)",
           "  'MyMean_part_1_of_6.kvo' is not used: 'MyMean_part_1_of_3.kvo' has some of its "
           "randomizations"}));
  engine.must_run({"MyModel = lm n1"});
  for (const char* left : {"MyMean_part_1_of_6.kvo", "MyModel_part_1_of_6.kvo"})
    EXPECT_TRUE(fs::remove(left)) << left;
  EXPECT_TRUE(snapshot() == whole);

  // Of studies that the table says since list their peaks otherwise, which weights them otherwise.
  run_part("MyMean = mean", "1/2");
  std::string table = read_text("kvo_table.txt");
  for (std::size_t at = 0; (at = table.find('\n', at)) != std::string::npos;) {
    const std::string cell = at == table.find('\n') ? "\tpeaks_per_cluster" : "\t1";
    table.insert(at, cell);
    at += cell.size() + 1;
  }
  write_text("kvo_table.txt", table);
  EXPECT_THAT(engine.run("MyMean = mean").lines,
              testing::Contains("  'MyMean_part_1_of_2.kvo' is not used: it is of other studies or "
                                "settings, or was made by another version"));

  // Of another command of that name, and damaged.
  run_part("MyModel = lm n1", "1/2");
  EXPECT_THAT(
      engine.run("MyModel = mean").lines,
      testing::Contains("  'MyModel_part_1_of_2.kvo' is not used: it is of other studies or "
                        "settings, or was made by another version"));
  fs::resize_file("MyModel_part_1_of_2.kvo", fs::file_size("MyModel_part_1_of_2.kvo") - 1);
  engine.expect_refused("MyModel = lm n1",
                        "'MyModel_part_1_of_2.kvo' is damaged. Please remove it, or "
                        "have it made again.");
  for (const char* part : {"0/2", "3/2", "1", "1/2/3", "-1/2", "1/100000"})
    engine.expect_refused("MyMean = mean",
                          std::string("KVO_SHARD is '") + part +
                              "', which is no part of the randomizations such as 1/8, the first of "
                              "eight, up to 8/8.",
                          [=] { setenv("KVO_SHARD", part, 1); });
  engine.expect_refused(
      "Sphere = mask coordinate, 26, -12, 4",
      "KVO_SHARD asks for a part of the randomizations, and only mean and lm have any.",
      [] { setenv("KVO_SHARD", "1/2", 1); });
}

/// Studies with a peak each in the same one of two voxels that are far apart. At random, three all
/// meet in a given voxel with probability 1/8, which is then the p of the mean, and in one of the
/// two with 1/4, which is the family-wise one. Of four, two have negative peaks: of the six ways to
/// deal out the groups one makes as much of a difference. Peaks that do not reach the mask are not
/// moved into it.
TEST(Run, FindsTheProbabilityThatRandomStudiesMeet) {
  const Installation engine;
  write_mask(engine.share() / "mask_gray_matter.nii.gz", {{-50, 0, 0}, {50, 0, 0}});
  write_image(engine.share() / "cor_gray_matter.nii.gz", image_of(1));
  const struct {
    std::string anisotropy, command, map, studies;
    double p, pFWE;
  } cases[] = {{"0", "M = mean", "M", "abc", 1.0 / 8, 1.0 / 4},
               {"1", "M = mean", "M", "abc", 1.0 / 8, 1.0 / 4},
               {"0", "M = lm group", "M_1", "abde", 1.0 / 6, 1.0 / 6}};
  for (const auto& [anisotropy, command, map, studies, p, pFWE] : cases) {
    SCOPED_TRACE(testing::Message()
                 << command << " of " << studies << ", anisotropy " << anisotropy);
    std::string table = "study n1 group\n";
    for (const char letter : studies) {
      const std::string study(1, letter);
      table += study + " 20 " + (letter < 'd' ? "1\n" : "0\n");
      write_text(study + ".peaks.txt",
                 std::string("# space: MNI\n0 -90 -60 9\n50 0 0 ") + (letter < 'd' ? "5" : "-5"));
    }
    write_text("kvo_table.txt", table);
    for (const std::string& each :
         {"pp gray_matter, " + anisotropy + ", 10, gray_matter, 4000", command})
      ASSERT_EQ(engine.run(each).closing(), "d") << each;
    const auto value = [&map = map](const char* kind, int x) {
      return double(value_at(read_image(map + "_" + kind + ".nii.gz"), {x, 0, 0}));
    };
    // Four standard errors of a binomial share of 4000.
    const auto near = [](double share) {
      return testing::DoubleNear(share, 4 * std::sqrt(share * (1 - share) / 4000));
    };
    EXPECT_THAT(value("p", 50), near(p));
    EXPECT_THAT(value("pFWE", 50), near(pFWE));
    // The other voxel may have a larger scale.
    EXPECT_GE(value("n_p", 50), 1 - p);
    EXPECT_EQ(value("p", -50), 1);
  }
}

void wait_for_end(pid_t process) {
  for (int attempt = 0; attempt < 6000 && kill(process, 0) == 0; ++attempt) usleep(10000);
  EXPECT_NE(kill(process, 0), 0) << "process " << process << " is still running";
}

/// A mean that takes far longer than a test, as one study has thousands of peaks.
TEST(Run, LeavesTheFolderAsItIsWhenItIsEnded) {
  const Installation engine;
  write_studies(3);
  std::string peaks = "# space: MNI\n";
  for (int p = 0; p < 4000; ++p) peaks += "24 -14 6 4\n";
  write_text("study0.peaks.txt", peaks);
  ASSERT_EQ(engine.run(preprocess + "10000").closing(), "d");
  const auto before = snapshot();
  const auto started = [&] {
    Running_command command = engine.start("MyMean = mean");
    command.read_until("aMoving peaks");
    return command;
  };
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
    Running_command cancelled = started();
    kill(cancelled.pid(), signal);
    const Outcome outcome = cancelled.finish();
    EXPECT_EQ(outcome.status, 1);
    ASSERT_GE(outcome.lines.size(), 2U);
    EXPECT_EQ(outcome.lines[outcome.lines.size() - 2], "c");
    EXPECT_EQ(outcome.closing(), "WARNING: The command was cancelled.");
    EXPECT_TRUE(snapshot() == before) << signal;
  }
  Running_command without_core = started();
  EXPECT_EQ(engine.run("Other = mean").closing(),
            "WARNING: Another command is running in this folder. Please wait until it has ended.");
  kill(without_core.child(), SIGKILL);
  EXPECT_EQ(without_core.finish().closing(),
            "WARNING: The engine ended before it finished: signal 9 (Killed).");
  EXPECT_TRUE(snapshot() == before);

  Running_command parent = started();
  const pid_t orphan = parent.child();
  kill(parent.pid(), SIGKILL);
  parent.finish();
  wait_for_end(orphan);
  EXPECT_TRUE(snapshot() == before) << "without its parent";

  // Stopped first, so that it cannot tidy up when its parent is gone. The next command does.
  Running_command all = started();
  const pid_t core = all.child();
  kill(core, SIGSTOP);
  kill(all.pid(), SIGKILL);
  kill(core, SIGKILL);
  all.finish();
  wait_for_end(core);
  EXPECT_FALSE(snapshot() == before);
  EXPECT_THAT(engine.run("MyMean = mean nothing").closing(), HasSubstr("no variable 'nothing'"));
  EXPECT_TRUE(snapshot() == before);

  fs::permissions(engine.program("kvo_core"), fs::perms(0644));
  EXPECT_THAT(engine.start("MyMean = mean").finish().lines,
              ElementsAre(EndsWith("kvo_core' cannot be started: Permission denied.")));
  fs::remove(engine.program("kvo_core"));
  EXPECT_THAT(engine.start("MyMean = mean").finish().lines,
              ElementsAre(EndsWith("cannot be started: No such file or directory.")));
  EXPECT_TRUE(snapshot() == before);

  // What was killed when its outputs were complete is done.
  write_text(engine.program("kvo_core"),
             "#!/bin/sh\nmkdir .kvo_new\necho whole > .kvo_new/x\necho move x > .kvo_new/moves\n"
             "kill -9 $$\n");
  fs::permissions(engine.program("kvo_core"), fs::perms(0755));
  const Outcome complete = engine.start("MyMean = mean").finish();
  EXPECT_EQ(complete.closing() + std::to_string(complete.status), "d0");
  EXPECT_EQ(read_text("x"), "whole\n");
}

}  // namespace
