// Every command in folders that strangers have prepared or that others disturb: links in the place
// of outputs, folders that cannot be written, a full disk, signals at any moment, and
// other commands at the same time.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/file.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "file_size_limit.h"
#include "runner.h"

using namespace kvo::images;

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

constexpr const char* preprocess = "pp gray_matter, 0, 10, gray_matter, 20";
/// One of each kind, none of which has been run in the folder.
constexpr const char* commands[] = {
    "pp gray_matter, 0, 12, gray_matter, 1",
    "New = mean",
    "New = lm age",
    "New = globals",
    "threshold MyMean, p, 0.4, 0, 1",
    "multi MyMean, Other, 0.4, 0.4, 1, 0, 0, 0.1",
    "New = mask label, 41",
    "New = mask coordinate, 26, -12, 4",
    "extract Sphere",
};

/// A folder with results that every command can go on from, which can be had again at any time.
class Hostile : public testing::Test {
 protected:
  Hostile() {
    write_image(engine_.share() / "atlas_aal_frw.nii.gz", image_of(41));
    write_studies(3);
    write_text("kvo_table.txt",
               "study n1 n2 age kept mean1 sd1 mean2 sd2\nstudy0 12 14 30 1 5 1 4 1\n"
               "study1 13 15 44 0 6 2 4 1\nstudy2 20 18 51 1 5 2 5 1\n");
    engine_.must_run(
        {preprocess, "MyMean = mean", "Other = mean kept", "Sphere = mask coordinate, 26, -12, 4"});
    engine_.save();
    before_ = snapshot();
  }

  Installation engine_;
  std::map<std::string, std::string> before_;
};

/// Waits until no command uses the folder, and keeps others out for as long as the result lives.
Q_fd lock_folder() {
  Q_fd folder(open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  EXPECT_EQ(flock(folder.get(), LOCK_EX), 0);
  return folder;
}

void link_to(const std::string& target, const std::string& file) {
  fs::remove_all(file);
  fs::create_symlink(target, file);
}

/// What a link in the place of an output leads to stays as it is: the output takes its place.
TEST_F(Hostile, LinksInThePlaceOfOutputsAreNotWrittenThrough) {
  fs::create_directory("elsewhere");
  write_text("elsewhere/victim", "safe");
  const struct {
    const char *command, *outputs[3];
  } cases[] = {
      {preprocess, {"pp/study0_g.nii.gz", "kvo_pp.txt", "kvo_nd.txt"}},
      {"MyMean = mean", {"MyMean_g.nii.gz", "MyMean_pFWE.nii.gz", "MyMean_n_p.nii.gz"}},
      {"New = lm age", {"New_0_g.nii.gz", "New_1_p.nii.gz", "New_1_var.nii.gz"}},
      {"New = globals", {"New_globals.txt", "New_globals.csv", "New_globals.html"}},
      {"extract Sphere", {"extract_Sphere.txt", "extract_Sphere.csv", "extract_Sphere.html"}},
      {"threshold MyMean, p, 0.4, 0, 1",
       {"MyMean_z_p_0.40000_0.000_1.csv", "MyMean_z_p_0.40000_0.000_1.html", "x"}},
  };
  for (const auto& [command, outputs] : cases) {
    for (const std::string output : outputs) link_to(engine_.work() / "elsewhere/victim", output);
    EXPECT_EQ(engine_.run(command).closing(), "d") << command;
    EXPECT_EQ(read_text("elsewhere/victim"), "safe") << command;
    for (const std::string output : outputs) EXPECT_EQ(fs::is_symlink(output), output == "x");
  }
  // Names of files are no instructions.
  for (const char* name :
       {"pp/x\nremove kvo_table.txt\ny_g.nii.gz", "pp/x\rremove kvo_table.txt\r_var.nii.gz"})
    write_text(name, "");
  engine_.must_run({preprocess});
  EXPECT_TRUE(fs::exists("kvo_table.txt"));
  // A folder that is called by another name is still that folder.
  engine_.restore();
  fs::create_directory_symlink(engine_.work(), engine_.work().parent_path() / "link");
  const auto through_link = [] {
    if (chdir("../link") != 0) _exit(126);
  };
  EXPECT_EQ(engine_.run("Other = mean kept", through_link).closing(), "d");
  EXPECT_TRUE(snapshot() == before_);
}

TEST_F(Hostile, NumbersAtTheirEndsGiveFiniteMaps) {
  write_text("kvo_table.txt",
             "study n1 n2 age\nstudy0 1000000 1000000 1\nstudy1 2 2 2\nstudy2 3 NA 1e9\n"
             "study3 1000000000 1000000000 -1e9\nstudy4 1000000000 NA 1e-300\n");
  for (const std::string study : {"study0", "study1", "study2", "study3"})
    write_text(study + ".peaks.txt",
               "# space: Talairach\n24 -14 6 10000\n26 -12 4 -10000\n200 -200 200 n\n");
  std::string most = "# space: MNI\n";
  for (int peak = 0; peak < 1000; ++peak) most += "24 -14 6 -1e-300\n";
  write_text("study4.peaks.txt", most);
  for (const char* command : {preprocess, "New = mean", "New = lm age", "extract Sphere",
                              "threshold New, p, 0.5, 0, 1"}) {
    const Outcome outcome = engine_.run(command);
    EXPECT_EQ(outcome.closing(), "d") << command;
    for (const std::string& line : outcome.lines)
      EXPECT_THAT(line, testing::Not(testing::AnyOf(HasSubstr("nan"), HasSubstr("inf"))))
          << command;
  }
  for (const char* map :
       {"g", "var", "z", "info", "ci_low", "ci_high", "0_g", "1_g", "0_z", "1_z", "1_info"}) {
    for (const float value : read_image("New_" + std::string(map) + ".nii.gz").values)
      ASSERT_TRUE(std::isfinite(value)) << map;
  }
}

TEST_F(Hostile, FoldersOfOthersAreLeftAlone) {
  const auto as_nobody = [] { become_nobody(); };
  fs::permissions(".", fs::perms(0555));
  for (const char* command : commands)
    engine_.expect_refused(command, "The working folder cannot be written: Permission denied.",
                           as_nobody);
  fs::permissions(".", fs::perms(0777));
  fs::permissions("pp", fs::perms(0555));
  engine_.expect_refused(preprocess, "The folder 'pp' cannot be written: Permission denied.",
                         as_nobody);
  fs::permissions("pp", fs::perms(0777));
  if (geteuid() != 0) return;  // There is no other user to try.
  // As in a folder for all, in which everybody's files are their own.
  fs::permissions(".", fs::perms(01777));
  engine_.expect_refused(preprocess, "'kvo_pp.txt' cannot be replaced: it belongs to another user",
                         as_nobody);
  engine_.expect_refused("MyMean = mean", "'MyMean_g.nii.gz' cannot be replaced: it belongs to",
                         as_nobody);
  EXPECT_EQ(engine_.run("New = mask label, 41", as_nobody).closing(), "d");
  fs::create_directory(".kvo_new");
  engine_.expect_refused("New = mask label, 41",
                         "'.kvo_new', which an earlier command has left, cannot be", as_nobody);
}

TEST_F(Hostile, AFullDiskOrAnotherCommandStopsEveryCommand) {
  for (const char* command : commands) {
    // Too little for any file, for a short one, and for an image.
    for (const rlim_t bytes : {rlim_t(0), rlim_t(200), rlim_t(2000)}) {
      // It lives as long as the process that carries the command out.
      const auto on_full_disk = [&] { static const File_size_limit limit(bytes); };
      EXPECT_THAT(engine_.expect_refused(command, "'", on_full_disk).closing(),
                  HasSubstr("cannot be written: File too large."))
          << bytes;
    }
    const Q_fd lock = lock_folder();
    engine_.expect_refused(command, "Another command is running in this folder. Please wait until");
  }
}

/// Both take the 10 s that an engine is given to end.
TEST_F(Hostile, AnEngineThatDoesNotEndIsKilled) {
  const auto start = [&](const std::string& script) {
    const fs::path core = engine_.program("kvo_core");
    fs::remove(core);
    write_text(core, "#!/bin/sh\necho aRuns\n" + script + "\n");
    fs::permissions(core, fs::perms(0755));
    Running_command running = engine_.start("New = mean");
    running.read_until("aRuns");
    return running;
  };
  Running_command deaf = start("trap '' TERM\nwhile :; do echo .; sleep 0.1; done");
  kill(deaf.pid(), SIGTERM);
  Running_command mute = start("exec sleep 600 >&-");
  EXPECT_EQ(mute.finish().closing(),
            "WARNING: The engine ended before it finished: signal 9 (Killed).");
  EXPECT_EQ(deaf.finish().closing(), "WARNING: The command was cancelled.");
}

/// All or nothing, whenever the signal comes and whoever gets it: the folder is as it was, or as
/// the finished command leaves it. All commands write in the same way; these write most, least,
/// and below a folder.
/// The page of the folder may be that of the command before.
auto without_overview(auto snapshot) {
  snapshot.erase("./index.html");
  return snapshot;
}

TEST_F(Hostile, SignalsLeaveACommandUndoneOrDone) {
  using Clock = std::chrono::steady_clock;
  for (const char* command : {commands[0], "New = lm age", "threshold MyMean, p, 0.4, 0, 1",
                              "New = mask coordinate, 26, -12, 4"}) {
    engine_.restore();
    const auto begin = Clock::now();
    Running_command unread = engine_.start(command);
    unread.close_output();
    EXPECT_EQ(unread.finish().status, 0) << command << " without a reader";
    const Clock::duration whole = Clock::now() - begin;
    const auto before = without_overview(before_), after = without_overview(snapshot());
    EXPECT_FALSE(after == before) << command;
    const struct {
      int signal;
      double moment;  ///< as a share of the time that the whole command has taken
    } signals[] = {{SIGTERM, 0.05}, {SIGKILL, 0.2},  {SIGTERM, 0.4}, {SIGKILL, 0.6},
                   {SIGTERM, 0.7},  {SIGKILL, 0.85}, {SIGKILL, 0.95}};
    for (const auto& [signal, moment] : signals) {
      SCOPED_TRACE(command + (", signal " + std::to_string(signal)) + " at " +
                   std::to_string(moment));
      engine_.restore();
      Running_command running = engine_.start(command, [] { setpgid(0, 0); });
      setpgid(running.pid(), running.pid());
      std::this_thread::sleep_for(whole * moment);
      // Killed at once, neither process can tidy up after the other.
      kill(signal == SIGKILL ? -running.pid() : running.pid(), signal);
      const Outcome outcome = running.finish();
      EXPECT_TRUE(signal == SIGKILL || (outcome.closing() == "d") == (outcome.status == 0))
          << outcome.closing();
      // A killed process may close its output before it lets go of the folder.
      lock_folder();
      engine_.run("New = mean nothing");  // finds what a killed command has left
      const auto now = without_overview(snapshot());
      EXPECT_TRUE(now == after || (now == before && outcome.status != 0));
    }
  }
}

}  // namespace
