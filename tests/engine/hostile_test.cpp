// Every command in folders that strangers have prepared or that others disturb: links in the place
// of inputs and outputs, folders that cannot be written, a full disk, signals at any moment, and
// other commands at the same time.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/file.h>
#include <unistd.h>

#include "file_size_limit.h"
#include "runner.h"

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::StartsWith;

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

void write_atlas(const fs::path& share, float value) {
  Image atlas;
  atlas.grid = mni_grid();
  atlas.values.assign(atlas.grid.voxels(), value);
  write_image(share / "atlas_aal_frw.nii.gz", atlas);
}

/// A folder with results that every command can go on from, which can be had again at any time.
class Hostile : public testing::Test {
 protected:
  Hostile() {
    write_atlas(engine_.share(), 41);
    write_studies(5);
    write_text("kvo_table.txt",
               "study n1 n2 age kept mean1 sd1 mean2 sd2\nstudy0 12 14 30 1 5 1 4 1\n"
               "study1 13 15 44 0 6 2 4 1\nstudy2 20 18 51 1 5 2 5 1\nstudy3 14 15 39 1 7 1 4 2\n"
               "study4 16 15 60 0 5 1 6 1\n");
    for (const char* command :
         {preprocess, "MyMean = mean", "Other = mean kept", "Sphere = mask coordinate, 26, -12, 4"})
      EXPECT_EQ(engine_.run(command).closing(), "d") << command;
    fs::copy(".", saved_, fs::copy_options::recursive);
    before_ = snapshot();
  }

  void restore() const {
    for (const auto& entry : fs::directory_iterator(".")) fs::remove_all(entry);
    fs::copy(saved_, ".", fs::copy_options::recursive);
  }

  /// Runs the command, which must be refused for that reason and change nothing. Returns the whole
  /// closing line.
  std::string expect_refused(const std::string& command, const std::string& reason,
                             const std::function<void()>& prepare = {}) const {
    const auto before = snapshot();
    const Outcome outcome = engine_.run(command, prepare);
    EXPECT_EQ(outcome.status, 1) << command;
    EXPECT_THAT(outcome.closing(), StartsWith("WARNING: " + reason)) << command;
    EXPECT_TRUE(snapshot() == before) << command << ": " << reason;
    return outcome.closing();
  }

  Installation engine_;
  fs::path saved_ = engine_.work().parent_path() / "saved";
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

TEST_F(Hostile, LinksAndDamageInThePlaceOfInputsAreRefused) {
  const auto link = [](const std::string& target, const std::string& file) {
    return [=] { link_to(target, file); };
  };
  const auto loop = [&](const std::string& file) { return link(file, file); };
  const auto cut = [](const std::string& file, std::uintmax_t bytes) {
    return [=] { fs::resize_file(file, bytes); };
  };
  const auto text = [](const std::string& file, const std::string& content) {
    return [=] { write_text(file, content); };
  };
  const std::string extract = "extract Sphere", mean = "New = mean";
  const std::string threshold = "threshold MyMean, p, 0.4, 0, 1";
  const std::string multi = "multi MyMean, Other, 0.4, 0.4, 1, 0, 0, 0.1";
  const std::string result = "MyMean_z_p_0.40000_0.000_1.nii.gz";
  const std::string peaks = "study1.peaks.txt", no_peaks = "Study 'study1' has no peaks file";
  std::string wide = "study n1" + std::string(20000, '\t') + "x\n";
  for (int s = 0; s < 300; ++s) wide.append("s").append(std::to_string(s)).append(" 20\n");
  const struct {
    std::function<void()> spoil;
    std::string command, reason;
  } cases[] = {
      {link(".", peaks), preprocess, "'study1.peaks.txt' is not a file."},
      {link("nowhere", peaks), preprocess, no_peaks},
      {loop(peaks), mean, no_peaks},
      {link("/dev/zero", peaks), mean, "'study1.peaks.txt' is not a file."},
      {link(".", "kvo_pp.txt"), mean, "'kvo_pp.txt' is not a file."},
      {loop("kvo_pp.txt"), "New = lm age", "No maps found."},
      {link("nowhere", "kvo_maps.txt"), threshold, "There is no map 'MyMean'."},
      {link("/", "kvo_maps.txt"), threshold, "'kvo_maps.txt' is not a file."},
      {link("/", "kvo_analyses.txt"), threshold, "'kvo_analyses.txt' is not a file."},
      {link("/dev/zero", "pp/study0_g.nii.gz"), mean, "'pp/study0_g.nii.gz': cannot be opened"},
      {link("..", "pp"), "New = lm age", "'pp/study0_g.nii.gz': cannot be opened: No such file"},
      {link("/", "mask_Sphere.nii.gz"), extract, "'mask_Sphere.nii.gz': is not a NIfTI-1"},
      {loop("mask_Sphere.nii.gz"), extract, "There is no mask 'Sphere'"},
      {cut("mask_Sphere.nii.gz", 700), extract, "'mask_Sphere.nii.gz': ends early"},
      {cut("mask_Sphere.nii.gz", 0), extract, "'mask_Sphere.nii.gz': is not a NIfTI-1 image"},
      {loop("MyMean_z.nii.gz"), threshold, "'MyMean_z.nii.gz': cannot be opened: Too many levels"},
      {link("/", "Other_p.nii.gz"), multi, "'Other_p.nii.gz': is not a NIfTI-1 image."},
      {loop(result), threshold, "There is already a '" + result + "' that was made elsewhere."},
      {link("Other_z.nii.gz", result), threshold, "There is already a '" + result + "' that was"},
      {link("nowhere", "mask_New.nii.gz"), "New = mask label, 41",
       "The name 'New' cannot be used: there is already a 'mask_New.nii.gz' that was made"},
      {[] {}, std::string(199, 'x') + " = lm age", "The name '" + std::string(199, 'x') + "_0' is"},
      {text("kvo_analyses.txt", "map\nMyMean 1e300 1 x\n"), threshold,
       "'kvo_analyses.txt', line 2: there are no numbers of studies and participants"},
      {text("kvo_table.txt", wide), preprocess,
       "'kvo_table.txt' is too large: 300 studies with 20002 columns."},
      {text("kvo_table.txt", wide), "New = globals", "'kvo_table.txt' is too large"},
  };
  for (const auto& [spoil, command, reason] : cases) {
    restore();
    spoil();
    expect_refused(command, reason);
  }
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
  // A folder that is called by another name is still that folder.
  restore();
  fs::create_directory_symlink(engine_.work(), engine_.work().parent_path() / "link");
  const auto through_link = [] {
    if (chdir("../link") != 0) _exit(126);
  };
  EXPECT_EQ(engine_.run("Other = mean kept", through_link).closing(), "d");
  EXPECT_TRUE(snapshot() == before_);
}

TEST_F(Hostile, NamesOfFilesAreNoInstructions) {
  write_text("pp/x\nremove kvo_table.txt\ny_g.nii.gz", "");
  write_text("pp/x\rremove kvo_table.txt\r_var.nii.gz", "");
  EXPECT_EQ(engine_.run(preprocess).closing(), "d");
  EXPECT_TRUE(fs::exists("kvo_table.txt"));
}

TEST_F(Hostile, NumbersAtTheirEndsGiveFiniteMaps) {
  write_text("kvo_table.txt",
             "study n1 n2 age\nstudy0 1000000 1000000 1\nstudy1 2 2 2\nstudy2 3 NA 1e9\n"
             "study3 1000000000 1000000000 -1e9\nstudy4 1000000000 NA 1e-300\n");
  for (const char* file : {"study0.peaks.txt", "study1.peaks.txt", "study2.peaks.txt",
                           "study3.peaks.txt", "study4.peaks.txt"})
    write_text(file, "# space: Talairach\n24 -14 6 10000\n26 -12 4 -10000\n200 -200 200 n\n");
  write_text(
      "study4.peaks.txt", "# space: MNI\n" + [] {
        std::string most;
        for (int peak = 0; peak < 5000; ++peak) most += "24 -14 6 -1e-300\n";
        return most;
      }());
  for (const char* command : {preprocess, "New = mean", "New = lm age", "extract Sphere",
                              "threshold New, p, 0.5, 0, 1"}) {
    const Outcome outcome = engine_.run(command);
    EXPECT_EQ(outcome.closing(), "d") << command;
    for (const std::string& line : outcome.lines)
      EXPECT_THAT(line, testing::Not(testing::AnyOf(HasSubstr("nan"), HasSubstr("inf"))))
          << command;
  }
  for (const char* map : {"g", "var", "z", "tau2", "I2", "Q", "0_g", "1_g", "0_z", "1_z"}) {
    const Image image = read_image("New_" + std::string(map) + ".nii.gz");
    EXPECT_TRUE(std::all_of(image.values.begin(), image.values.end(), [](float value) {
      return std::isfinite(value);
    })) << map;
  }
}

TEST_F(Hostile, FoldersOfOthersAreLeftAlone) {
  const auto as_nobody = [] { become_nobody(); };
  fs::permissions(".", fs::perms(0555));
  for (const char* command : commands)
    expect_refused(command, "The working folder cannot be written: Permission denied.", as_nobody);
  fs::permissions(".", fs::perms(0777));
  fs::permissions("pp", fs::perms(0555));
  expect_refused(preprocess, "The folder 'pp' cannot be written: Permission denied.", as_nobody);
  fs::permissions("pp", fs::perms(0777));
  if (geteuid() != 0) return;  // There is no other user to try.
  // As in a folder for all, in which everybody's files are their own.
  fs::permissions(".", fs::perms(01777));
  expect_refused(preprocess, "'kvo_pp.txt' cannot be replaced: it belongs to another user",
                 as_nobody);
  expect_refused("MyMean = mean", "'MyMean_g.nii.gz' cannot be replaced: it belongs to", as_nobody);
  EXPECT_EQ(engine_.run("New = mask label, 41", as_nobody).closing(), "d");
  fs::create_directory(".kvo_new");
  expect_refused("New = mask label, 41", "'.kvo_new', which an earlier command has left, cannot be",
                 as_nobody);
}

TEST_F(Hostile, AFullDiskOrAnotherCommandStopsEveryCommand) {
  for (const char* command : commands) {
    const auto on_full_disk = [] { static const File_size_limit limit(200); };
    EXPECT_THAT(expect_refused(command, "'", on_full_disk),
                HasSubstr("cannot be written: File too large."));
    const Q_fd lock = lock_folder();
    expect_refused(command, "Another command is running in this folder. Please wait until");
  }
}

/// All or nothing, whenever the signal comes and whoever gets it: the folder is as it was, or as
/// the finished command leaves it.
TEST_F(Hostile, SignalsLeaveEveryCommandUndoneOrDone) {
  for (const char* command : commands) {
    restore();
    Running_command unread = engine_.start(command);
    unread.close_output();
    EXPECT_EQ(unread.finish().status, 0) << command << " without a reader";
    const auto after = snapshot();
    EXPECT_FALSE(after == before_) << command;
    for (const int signal : {SIGTERM, SIGKILL}) {
      for (int microseconds = 500; microseconds < 200000; microseconds *= 3) {
        restore();
        Running_command running = engine_.start(command, [] { setpgid(0, 0); });
        usleep(useconds_t(microseconds));
        // Killed at once, neither process can tidy up after the other.
        kill(signal == SIGKILL ? -running.pid() : running.pid(), signal);
        const Outcome outcome = running.finish();
        const bool said_done = outcome.closing() == "d";
        EXPECT_TRUE(signal == SIGKILL || said_done == (outcome.status == 0))
            << command << " after " << microseconds << " us: " << outcome.closing();
        // A killed process may close its output before it lets go of the folder.
        lock_folder();
        engine_.run("New = mean nothing");  // finds what a killed command has left
        const auto now = snapshot();
        EXPECT_TRUE(now == after || (now == before_ && outcome.status != 0))
            << command << ", signal " << signal << " after " << microseconds << " us";
      }
    }
  }
}

}  // namespace
