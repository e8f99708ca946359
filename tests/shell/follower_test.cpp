// Reading of a file that grows, and the file itself.

#include "shell/follower.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <chrono>
#include <ctime>
#include <fstream>

#include "shell/run_output.h"
#include "test_folder.h"
#include "util/files.h"

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using Clock = std::chrono::steady_clock;
using Texts = std::vector<std::string>;

constexpr auto PATIENCE = std::chrono::seconds(60);  // only a failing test uses it up

/// A file of a folder of its own, and its reader.
class Follower : public testing::Test {
 protected:
  Follower() : output((write_text("out", ""), Q_openr_or_die("out")), "out") {}

  static void append(const std::string& text) {
    std::ofstream("out", std::ios::app | std::ios::binary) << text;
  }
  Texts lines_now(bool final = false) {
    Texts lines;
    while (const auto line = output.next_line(final)) lines.push_back(*line);
    return lines;
  }

 private:
  Test_folder folder_;

 protected:
  Q_follower output;
};

TEST_F(Follower, ReadsWhatIsAppended) {
  EXPECT_THAT(lines_now(), ElementsAre());
  append("one\ntwo\nWARN");
  EXPECT_FALSE(output.has_line());
  EXPECT_EQ(output.next_line(false), "one");
  EXPECT_TRUE(output.has_line());
  EXPECT_EQ(output.next_line(false), "two");
  EXPECT_FALSE(output.has_line());
  append("ING: split\n\r\nthree\xFF");
  EXPECT_THAT(lines_now(), ElementsAre("WARNING: split", "", "", "three"));
}

TEST_F(Follower, GivesAnUnendedLineOnlyWhenTheFileRestsOrIsFinal) {
  append("no end");
  EXPECT_EQ(output.next_line(false), std::nullopt);
  const Clock::time_point start = Clock::now();
  std::optional<std::string> line;
  while (!line && Clock::now() - start < PATIENCE) line = output.next_line(false);
  EXPECT_EQ(line, "no end");
  append(" of this");
  EXPECT_THAT(lines_now(true), ElementsAre(" of this"));
}

TEST_F(Follower, GivesManyLongLinesWhole) {
  Texts expected;
  for (std::size_t i = 0; i < 20; ++i) {
    expected.emplace_back(Q_STRING_MAX, 'x');
    expected.push_back(std::to_string(i));
    expected.emplace_back(i * 997, 'y');
    append(expected[3 * i] + expected[3 * i + 1] + "\n" + expected[3 * i + 2] + "\n");
  }
  EXPECT_TRUE(lines_now() == expected);
}

TEST_F(Follower, WaitsUntilTheFileGrowsOrTheWriterEnds) {
  ASSERT_EQ(mkfifo("gate", 0600), 0);
  Q_watched_command writer("read line < gate; echo $line >> out");
  // A waiting follower does nothing, and comes back after 10 ms.
  constexpr int WAITS = 30;
  const std::clock_t processor = std::clock();
  const Clock::time_point start = Clock::now();
  for (int i = 0; i < WAITS; ++i) output.wait(writer);
  EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(5 * WAITS));
  EXPECT_LT(static_cast<double>(std::clock() - processor) / CLOCKS_PER_SEC, 0.1);

  write_text("gate", "grown\n");
  std::optional<std::string> line;
  for (const auto end = Clock::now() + PATIENCE; (!line || !writer.ended()) && Clock::now() < end;
       output.wait(writer))
    if (!line) line = output.next_line(false);
  EXPECT_EQ(line, "grown");
  EXPECT_TRUE(writer.ended());
}

TEST(RunOutput, IsPrivateAndRemovedAlsoAfterItsOwnersDeath) {
  const Test_folder folder;
  std::string path;
  {
    const Q_run_output output;
    path = output.path().str();
    EXPECT_EQ(mode_of(path), 0600U);
    EXPECT_NE(path, Q_run_output().path().str());
    for (const char* file : {"kvo_1.tmp", "kvo_23x.tmp", "kvo_.tmp", "xkvo_1.tmp", "aim", "linked"})
      write_text(file, "text");
    fs::create_symlink("aim", "kvo_2.tmp");
    fs::create_hard_link("linked", "kvo_3.tmp");
    fs::create_directory("kvo_4.tmp");
    Q_remove_dead_outputs();
    for (const char* stays : {"kvo_23x.tmp", "kvo_.tmp", "xkvo_1.tmp", "aim", "linked", "kvo_2.tmp",
                              "kvo_3.tmp", "kvo_4.tmp", path.c_str()})
      EXPECT_TRUE(fs::exists(stays)) << stays;
    EXPECT_FALSE(fs::exists("kvo_1.tmp")) << "nobody has it locked";
  }
  EXPECT_FALSE(fs::exists(path));
}

}  // namespace
