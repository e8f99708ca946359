// Whole commands: what they leave, and what is left when they do not come to their end.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <omp.h>
#include <signal.h>
#include <unistd.h>

#include "runner.h"

using namespace kvo::images;

namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::ElementsAre;
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
              ElementsAre("name", "Other", "Other_n", "MyMean", "MyMean_n"));
  EXPECT_EQ(read_text("kvo_analyses.txt"),
            "map\tstudies\tparticipants\tcommand\tleft_out\n"
            "Other\t2\t41\tOther = mean TEMPORAL_COLUMN_FOR_JACKKNIFE_ANALYSIS\tstudy1\n"
            "MyMean\t3\t69\tMyMean = mean\tNA\n");
  write_image(engine.share() / "atlas_aal_frw.nii.gz", image_of(41));
  engine.must_run({"threshold Other, p, 0.5, 0, 1", "threshold MyMean, p, 0.5, 0, 1"});
  EXPECT_THAT(read_text("Other_z_p_0.50000_0.000_1.html"),
              AllOf(HasSubstr("(without &#39;study1&#39;)"), Not(HasSubstr("subgroup"))));
  EXPECT_THAT(read_text("MyMean_z_p_0.50000_0.000_1.html"), Not(HasSubstr("without")));
  for (const char* suffix :
       {"_g", "_var", "_z", "_p", "_tau2", "_I2", "_Q", "_pFWE", "_n_p", "_n_pFWE"}) {
    const Image image = read_image("MyMean" + std::string(suffix) + ".nii.gz");
    EXPECT_TRUE(image.grid == mni_grid()) << suffix;
    EXPECT_EQ(image.space, Space::mni) << suffix;
    EXPECT_EQ(image.description, "KVO 4.31 MyMean = mean") << suffix;
  }
  EXPECT_EQ(value_at(read_image("MyMean_p.nii.gz"), {0, 60, 0}), 1) << "outside of the mask";

  // A new meta-analysis takes the place of the old one; what is not ours stays.
  write_text("Other_g.nii.gz", "a user's own");
  write_text("pp/notes.txt", "a user's own");
  write_studies(2);
  EXPECT_EQ(engine.run(preprocess + "1").closing(), "d");
  EXPECT_EQ(read_text("kvo_maps.txt"), "");
  EXPECT_TRUE(fs::exists("pp/study1_g.nii.gz"));
  EXPECT_FALSE(fs::exists("pp/study2_g.nii.gz"));
  EXPECT_FALSE(fs::exists("MyMean_g.nii.gz"));
  EXPECT_FALSE(fs::exists("Other_z.nii.gz"));
  EXPECT_EQ(read_text("Other_g.nii.gz"), "a user's own");
  EXPECT_EQ(read_text("pp/notes.txt"), "a user's own");
  EXPECT_EQ(engine.run("MyMean = mean").closing(), "d");
  EXPECT_FALSE(fs::exists("MyMean_pFWE.nii.gz")) << "with too few randomizations for it";
}

TEST(Run, RemovesNothingThatAStrangersListNames) {
  const Installation engine;
  write_studies(3);
  write_text("kvo_maps.txt", "../share/mask\n/etc/passwd\nmy own\n..\n");
  fs::copy_file(engine.share() / "mask_gray_matter.nii.gz", engine.share() / "mask_g.nii.gz");
  const auto programs = fs::file_size(engine.share() / "mask_g.nii.gz");
  EXPECT_EQ(engine.run(preprocess + "1").closing(), "d");
  EXPECT_EQ(fs::file_size(engine.share() / "mask_g.nii.gz"), programs);
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
              testing::Contains("  study3: 2 of 3 peaks lie outside of the mask, 1 of them too far "
                                "away to reach it"));
  write_text("kvo_table.txt",
             "study n1 n2 kept\nstudy0 12 NA 1\nstudy1 13 15 NA\nstudy2 14 15 0\nstudy3 15 NA 1\n");
  EXPECT_THAT(engine.run("MyMean = mean kept").lines,
              testing::Contains("  The filter leaves out 2 of 4 studies"));
  EXPECT_THAT(engine.start("help").finish().lines, testing::Contains("  NAME = mean [filter]"));
}

TEST(Run, ListsTheFirstStudiesWithPeaksOutsideOfTheMask) {
  const Installation engine;
  struct {
    int studies;
    std::size_t listed;
    const char* last;
  } const rows[] = {
      {20, 20, "  study19: 1 of 1 peaks lies outside of the mask"},
      {21, 20, "  \u2026 and 1 more study with peaks outside of the mask"},
      {25, 20, "  \u2026 and 5 more studies with peaks outside of the mask"},
  };
  for (const auto& [studies, listed, last] : rows) {
    write_studies(studies);
    for (int s = 0; s < studies; ++s)
      write_text("study" + std::to_string(s) + ".peaks.txt", "# space: MNI\n18 -14 6 4\n");
    const Outcome outcome = engine.run(preprocess + "1");
    ASSERT_EQ(outcome.closing(), "d");
    std::vector<std::string> lines;
    for (const std::string& line : outcome.lines)
      if (line.starts_with("  ")) lines.push_back(line);
    EXPECT_EQ(lines.size(), std::min<std::size_t>(std::size_t(studies), listed + 1)) << studies;
    EXPECT_EQ(lines.back(), last);
  }
}

TEST(Run, GivesTheSameBytesAgainAndWithAnyNumberOfThreads) {
  const Installation engine;
  std::vector<std::map<std::string, std::string>> results;
  for (const int threads : {1, 2, 5}) {
    remove_everything();
    write_studies(5);
    for (const char* study : {"study2", "study3"}) {
      fs::remove(std::string(study) + ".peaks.txt");
      write_t_image(study, study[5]);
    }
    const auto with_threads = [&] { omp_set_num_threads(threads); };
    ASSERT_EQ(engine.run(preprocess + "30", with_threads).closing(), "d");
    ASSERT_EQ(engine.run("MyMean = mean", with_threads).closing(), "d");
    ASSERT_EQ(engine.run("MyModel = lm n1", with_threads).closing(), "d");
    results.push_back(snapshot());
    EXPECT_TRUE(results.back() == results.front()) << threads << " threads";
  }
  // Another seed gives other p values, and nothing else.
  std::string record = read_text("kvo_pp.txt");
  write_text("kvo_pp.txt", record.replace(record.find("seed = 1"), 8, "seed = 2"));
  ASSERT_EQ(engine.run("MyMean = mean").closing(), "d");
  EXPECT_EQ(read_text("MyMean_z.nii.gz"), results.front()["./MyMean_z.nii.gz"]);
  EXPECT_NE(read_text("MyMean_p.nii.gz"), results.front()["./MyMean_p.nii.gz"]);
}

/// Three studies with a peak each in the same one of two voxels that are far apart. Among moved
/// peaks all three meet in a given voxel with probability 1/8, which is then the p of the mean, and
/// in one of the two with 1/4, which is the family-wise one. Peaks that do not reach the mask are
/// not moved into it.
TEST(Run, FindsTheProbabilityThatMovedPeaksMeet) {
  const Installation engine;
  write_mask(engine.share() / "mask_gray_matter.nii.gz", {{-50, 0, 0}, {50, 0, 0}});
  write_text("kvo_table.txt", "study n1\na 20\nb 20\nc 20\n");
  for (const char* file : {"a.peaks.txt", "b.peaks.txt", "c.peaks.txt"})
    write_text(file, "# space: MNI\n50 0 0 5\n0 -90 -60 9\n");
  ASSERT_EQ(engine.run(preprocess + "4000").closing(), "d");
  ASSERT_EQ(engine.run("MyMean = mean").closing(), "d");
  const Image p = read_image("MyMean_p.nii.gz"), pFWE = read_image("MyMean_pFWE.nii.gz");
  // Four standard errors of a binomial share of 4000.
  EXPECT_NEAR(value_at(p, {50, 0, 0}), 0.125, 4 * 0.0052);
  EXPECT_NEAR(value_at(pFWE, {50, 0, 0}), 0.25, 4 * 0.0068);
  EXPECT_EQ(value_at(p, {-50, 0, 0}), 1);
  EXPECT_EQ(value_at(read_image("MyMean_z.nii.gz"), {-50, 0, 0}), 0);
}

/// A folder in which a mean takes far longer than a test, as one study has thousands of peaks.
class LongRun : public testing::Test {
 protected:
  LongRun() {
    write_studies(3);
    std::ofstream peaks("study0.peaks.txt", std::ios::app);
    for (int p = 0; p < 4000; ++p) peaks << "24 -14 6 4\n";
    peaks.close();
    EXPECT_EQ(engine_.run(preprocess + "10000").closing(), "d");
    before_ = snapshot();
  }

  /// The mean, when it has begun to compute.
  Running_command started_mean() const {
    Running_command command = engine_.start("MyMean = mean");
    command.read_until("aMoving the peaks");
    return command;
  }

  void expect_unchanged() const { EXPECT_TRUE(snapshot() == before_); }

  Installation engine_;
  std::map<std::string, std::string> before_;
};

void wait_for_end(pid_t process) {
  for (int attempt = 0; attempt < 6000 && kill(process, 0) == 0; ++attempt) usleep(10000);
  EXPECT_NE(kill(process, 0), 0) << "process " << process << " is still running";
}

TEST_F(LongRun, IsCancelledByASignal) {
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
    Running_command command = started_mean();
    kill(command.pid(), signal);
    const Outcome outcome = command.finish();
    EXPECT_EQ(outcome.status, 1);
    ASSERT_GE(outcome.lines.size(), 2U);
    EXPECT_EQ(outcome.lines[outcome.lines.size() - 2], "c");
    EXPECT_EQ(outcome.closing(), "WARNING: The command was cancelled.");
    expect_unchanged();
  }
}

TEST_F(LongRun, TellsOfTheDeathOfItsCore) {
  Running_command command = started_mean();
  kill(command.child(), SIGKILL);
  const Outcome outcome = command.finish();
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.closing(), "WARNING: The engine ended before it finished: signal 9 (Killed).");
  expect_unchanged();
}

TEST_F(LongRun, EndsWithItsParent) {
  Running_command command = started_mean();
  const pid_t core = command.child();
  kill(command.pid(), SIGKILL);
  command.finish();
  wait_for_end(core);
  expect_unchanged();
}

TEST_F(LongRun, IsTidiedUpByTheNextCommandWhenAllWereKilled) {
  Running_command command = started_mean();
  const pid_t core = command.child();
  // Stopped first, so that it cannot tidy up when its parent is gone.
  kill(core, SIGSTOP);
  kill(command.pid(), SIGKILL);
  kill(core, SIGKILL);
  command.finish();
  wait_for_end(core);
  EXPECT_FALSE(snapshot() == before_);
  EXPECT_THAT(engine_.run("MyMean = mean nothing").closing(), HasSubstr("no variable 'nothing'"));
  expect_unchanged();
}

TEST_F(LongRun, KeepsOtherCommandsOutOfTheFolder) {
  Running_command command = started_mean();
  EXPECT_EQ(engine_.run("Other = mean").closing(),
            "WARNING: Another command is running in this folder. Please wait until it has ended.");
  kill(command.pid(), SIGTERM);
  command.finish();
  expect_unchanged();
}

TEST(Run, SaysWhenTheCoreCannotBeStarted) {
  const Installation engine;
  write_studies(3);
  const auto before = snapshot();
  fs::permissions(engine.program("kvo_core"), fs::perms(0644));
  EXPECT_THAT(engine.start(preprocess + "1").finish().lines,
              ElementsAre(testing::EndsWith("kvo_core' cannot be started: Permission denied.")));
  fs::remove(engine.program("kvo_core"));
  EXPECT_THAT(engine.start(preprocess + "1").finish().lines,
              ElementsAre(testing::EndsWith("cannot be started: No such file or directory.")));
  EXPECT_TRUE(snapshot() == before);
}

}  // namespace
