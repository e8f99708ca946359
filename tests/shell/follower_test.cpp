// Reading of a file that grows.

#include "shell/follower.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <chrono>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "shell/run_output.h"
#include "test_folder.h"
#include "util/files.h"

namespace {

using testing::ElementsAre;
using testing::Eq;
using testing::Optional;
using Clock = std::chrono::steady_clock;

constexpr auto PATIENCE = std::chrono::seconds(60);  // only a failing test uses it up

void append(const std::string& text) {
  std::ofstream("out", std::ios::app | std::ios::binary) << text;
}

Q_follower follow_new_file() {
  write_text("out", "");
  return {Q_openr_or_die("out"), "out"};
}

std::vector<std::string> lines_now(Q_follower& output, bool final) {
  std::vector<std::string> lines;
  while (const auto line = output.next_line(final)) lines.push_back(*line);
  return lines;
}

TEST(Follower, ReadsWhatIsAppended) {
  const Test_folder folder;
  Q_follower output = follow_new_file();
  EXPECT_THAT(lines_now(output, false), ElementsAre());
  append("one\ntwo\n");
  EXPECT_THAT(lines_now(output, false), ElementsAre("one", "two"));
  EXPECT_THAT(lines_now(output, false), ElementsAre());
  append("\r\nthree\xFF");
  EXPECT_THAT(lines_now(output, false), ElementsAre("", "", "three"));
}

TEST(Follower, JoinsALineWrittenInPieces) {
  const Test_folder folder;
  Q_follower output = follow_new_file();
  append("WARN");
  EXPECT_THAT(output.next_line(false), Eq(std::nullopt));
  append("ING: split\nnext");
  EXPECT_THAT(output.next_line(false), Optional(Eq("WARNING: split")));
}

TEST(Follower, GivesAnUnendedLineOnlyWhenTheFileRestsOrIsFinal) {
  const Test_folder folder;
  Q_follower output = follow_new_file();
  append("no end");
  const Clock::time_point start = Clock::now();
  std::optional<std::string> line;
  while (!line && Clock::now() - start < PATIENCE) line = output.next_line(false);
  EXPECT_THAT(line, Optional(Eq("no end")));
  EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(10));
  append(" of this");
  EXPECT_THAT(lines_now(output, true), ElementsAre(" of this"));
}

TEST(Follower, GivesManyLongLinesWhole) {
  const Test_folder folder;
  Q_follower output = follow_new_file();
  const std::string full(Q_STRING_MAX, 'x');
  std::vector<std::string> expected;
  for (int i = 0; i < 20; ++i) {
    append(full + std::to_string(i) + "\n" + std::string(static_cast<std::size_t>(i) * 997, 'y') +
           "\n");
    expected.push_back(full);
    expected.push_back(std::to_string(i));
    expected.emplace_back(static_cast<std::size_t>(i) * 997, 'y');
  }
  append("rest");
  expected.emplace_back("rest");
  EXPECT_TRUE(lines_now(output, true) == expected);
}

TEST(Follower, KnowsWhetherALineIsThere) {
  const Test_folder folder;
  Q_follower output = follow_new_file();
  EXPECT_FALSE(output.has_line());
  append("one\ntwo\nthr");
  EXPECT_THAT(output.next_line(false), Optional(Eq("one")));
  EXPECT_TRUE(output.has_line());
  EXPECT_THAT(output.next_line(false), Optional(Eq("two")));
  EXPECT_FALSE(output.has_line());
}

TEST(Follower, WaitsUntilTheFileGrowsOrTheWriterEnds) {
  const Test_folder folder;
  Q_follower output = follow_new_file();
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
  for (const auto end = Clock::now() + PATIENCE; !line && Clock::now() < end;) {
    output.wait(writer);
    line = output.next_line(false);
  }
  EXPECT_THAT(line, Optional(Eq("grown")));
  for (const auto end = Clock::now() + PATIENCE; !writer.ended() && Clock::now() < end;)
    output.wait(writer);
  EXPECT_TRUE(writer.ended());
}

TEST(RunOutput, IsPrivateAndRemovedAlsoAfterItsOwnersDeath) {
  const Test_folder folder;
  std::string path;
  {
    const Q_run_output output;
    path = output.path().str();
    EXPECT_EQ(std::filesystem::status(path).permissions(), std::filesystem::perms(0600));
    const Q_run_output other;
    EXPECT_NE(path, other.path().str());
    for (const char* file : {"kvo_1.tmp", "kvo_23x.tmp", "kvo_.tmp", "xkvo_1.tmp", "aim", "linked"})
      write_text(file, "text");
    std::filesystem::create_symlink("aim", "kvo_2.tmp");
    std::filesystem::create_hard_link("linked", "kvo_3.tmp");
    std::filesystem::create_directory("kvo_4.tmp");
    Q_remove_dead_outputs();
    for (const char* stays : {"kvo_23x.tmp", "kvo_.tmp", "xkvo_1.tmp", "aim", "linked", "kvo_2.tmp",
                              "kvo_3.tmp", "kvo_4.tmp", path.c_str()})
      EXPECT_TRUE(std::filesystem::exists(stays)) << stays;
    EXPECT_FALSE(std::filesystem::exists("kvo_1.tmp")) << "nobody has it locked";
  }
  EXPECT_FALSE(std::filesystem::exists(path));
}

}  // namespace
