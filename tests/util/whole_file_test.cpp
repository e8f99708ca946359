// Files written whole or not at all: what stays of the old file, its mode and its links, also when
// each system call of the writer fails in turn, or is where the program is killed. The linker sends
// the calls through the functions below.

#include "util/whole_file.h"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cerrno>
#include <climits>

#include "file_size_limit.h"
#include "test_folder.h"

namespace {

enum class Fault { none, error, short_write, kill };

struct {
  Fault kind = Fault::none;
  int countdown = 0;  // calls until the fault
  int error = 0;
} plan;

int calls = 0;

/// Counts a call; true when it is to fail.
bool fails_now() {
  ++calls;
  if (plan.kind == Fault::none || --plan.countdown != 0) return false;
  if (plan.kind == Fault::kill) _exit(99);
  errno = plan.error;
  return plan.kind == Fault::error;
}

}  // namespace

/// A function of the system in whose place another one of the same parameters counts and fails.
#define FAILING(name, parameters, arguments)           \
  int __real_##name parameters;                        \
  int __wrap_##name parameters {                       \
    return fails_now() ? -1 : __real_##name arguments; \
  }

extern "C" {
ssize_t __real_write(int fd, const void* data, size_t size);
ssize_t __wrap_write(int fd, const void* data, size_t size) {
  const bool is_short = plan.kind == Fault::short_write && plan.countdown == 1;
  if (fails_now()) return -1;
  return __real_write(fd, data, is_short && size > 1 ? size / 2 : size);
}
FAILING(mkostemp, (char* pattern, int flags), (pattern, flags))
FAILING(fchmod, (int fd, mode_t mode), (fd, mode))
FAILING(fsync, (int fd), (fd))
FAILING(rename, (const char* from, const char* to), (from, to))
FAILING(renameat2, (int in, const char* from, int into, const char* to, unsigned flags),
        (in, from, into, to, flags))
}

namespace {

namespace fs = std::filesystem;

constexpr const char* OLD = "the old content\n";
constexpr const char* NEW = "the new content, which is longer\n";
constexpr int MOST_CALLS = 50;

long entries() {
  return std::distance(fs::directory_iterator("."), {});
}

using Writer = bool (*)(const char* path, std::string_view text);

bool write_with(Fault kind, int at, int error, Writer writer = Q_write_whole) {
  plan = {kind, at, error};
  calls = 0;
  const bool done = writer("file", NEW);
  plan = {};
  return done;
}

TEST(WholeFile, KeepsModeAndLinks) {
  const Test_folder folder;
  const mode_t mask = umask(022);
  ASSERT_TRUE(Q_write_whole("new", "1"));
  EXPECT_EQ(mode_of("new"), 0644U);
  chmod("new", 0600);
  ASSERT_TRUE(Q_write_whole("new", std::string("2\0%s", 4)));
  EXPECT_EQ(mode_of("new"), 0600U);
  EXPECT_EQ(read_text("new"), std::string("2\0%s", 4));
  umask(mask);

  fs::create_symlink("new", "link");
  ASSERT_TRUE(Q_write_whole("link", NEW));
  EXPECT_TRUE(fs::is_symlink("link"));
  EXPECT_EQ(read_text("new"), NEW);
  EXPECT_EQ(entries(), 2);

  // A chain of links to a file that is not there yet.
  fs::create_directory("elsewhere");
  fs::create_symlink("not yet", "elsewhere/second");
  fs::create_symlink(folder.path() / "elsewhere/second", "first");
  ASSERT_TRUE(Q_write_whole("first", "created"));
  EXPECT_TRUE(fs::is_symlink("first"));
  EXPECT_TRUE(fs::is_symlink("elsewhere/second"));
  EXPECT_EQ(read_text("elsewhere/not yet"), "created");
}

TEST(WholeFile, IsWrittenInPlaceWhereNoFileCanBeMadeBesideIt) {
  const Test_folder folder;
  // A temporary name of this file would be too long for the file system.
  const std::string name(NAME_MAX, 'x');
  write_text(name, OLD);
  for (const char* text : {"shorter", "", "old"}) {
    ASSERT_TRUE(Q_write_whole(name.c_str(), text));
    EXPECT_EQ(read_text(name), text);
  }
  for (const rlim_t room : {0, 1, 3, 4, 999}) {
    const File_size_limit limit(room);
    EXPECT_FALSE(Q_write_whole(name.c_str(), std::string(1000, 'y'))) << room;
    EXPECT_EQ(errno, EFBIG) << room;
    EXPECT_EQ(read_text(name), "old") << room;
  }
  EXPECT_FALSE(Q_write_whole(std::string(NAME_MAX + 1, 'x').c_str(), NEW));
}

TEST(WholeFile, EndsTheProgramForWhatCannotBeWrittenButNotForAFullDisk) {
  const Test_folder folder;
  fs::create_directory("folder");
  for (const char* path : {"none/file", "folder", ""}) {
    EXPECT_FALSE(*path != '\0' && Q_can_write_whole(path)) << path;
    EXPECT_FALSE(Q_write_whole(path, NEW)) << path;
    EXPECT_EXIT((void)Q_write_whole_or_die(path, NEW), testing::ExitedWithCode(1),
                "File '" + std::string(path) + "' not writable");
  }
  write_text("file", OLD);
  const File_size_limit full(2);
  EXPECT_FALSE(Q_write_whole_or_die("file", NEW));
  EXPECT_FALSE(Q_write_whole_or_die("new file", NEW));
  EXPECT_EQ(read_text("file"), OLD);
  EXPECT_EQ(entries(), 2);
}

TEST(WholeFileFaults, EachFailingCallLeavesTheOldFile) {
  const std::pair<bool, Writer> cases[] = {
      {true, Q_write_whole}, {false, Q_write_whole}, {false, Q_create_whole}};
  for (const int error : {ENOSPC, EIO, EDQUOT})
    for (const auto& [existed, writer] : cases) {
      int at = 1;
      for (; at < MOST_CALLS; ++at) {
        const Test_folder folder;
        if (existed) write_text("file", OLD);
        errno = 0;
        if (write_with(Fault::error, at, error, writer)) break;
        EXPECT_EQ(errno, error) << "call " << at;
        EXPECT_EQ(entries(), existed ? 1 : 0) << "call " << at;
        EXPECT_EQ(read_text("file"), existed ? OLD : "") << "call " << at;
      }
      EXPECT_GT(at, calls) << "a failure was passed over";
      EXPECT_GE(at, 6) << "temporary name, write, mode, flush and rename are each made to fail";
      EXPECT_LT(at, MOST_CALLS);
    }
}

/// Also on file systems that cannot rename in that way.
TEST(WholeFileFaults, ANewFileTakesNoNameThatIsTaken) {
  for (const Fault kind : {Fault::none, Fault::error}) {
    const Test_folder folder;
    const int at_rename = 5;
    EXPECT_TRUE(write_with(kind, at_rename, EINVAL, Q_create_whole));
    EXPECT_EQ(calls, at_rename);
    EXPECT_EQ(read_text("file"), NEW);
    write_text("file", OLD);
    EXPECT_FALSE(write_with(kind, at_rename, EINVAL, Q_create_whole));
    EXPECT_EQ(errno, EEXIST);
    EXPECT_EQ(read_text("file"), OLD);
    fs::remove("file");
    fs::create_symlink("none", "file");
    EXPECT_FALSE(write_with(kind, at_rename, EINVAL, Q_create_whole));
    EXPECT_EQ(entries(), 1);
  }
}

TEST(WholeFileFaults, ShortWritesAndKillsLeaveAWholeFile) {
  for (int at = 1; at <= 3; ++at) {
    const Test_folder folder;
    EXPECT_TRUE(write_with(Fault::short_write, at, 0)) << at;
    EXPECT_EQ(read_text("file"), NEW) << at;
  }
  bool finished = false;
  for (int at = 1; at < MOST_CALLS && !finished; ++at) {
    const Test_folder folder;
    write_text("file", OLD);
    const pid_t child = fork();
    if (child == 0) _exit(write_with(Fault::kill, at, 0) ? 0 : 1);
    int status = 0;
    waitpid(child, &status, 0);
    finished = WIFEXITED(status) && WEXITSTATUS(status) == 0;
    EXPECT_TRUE(finished || WEXITSTATUS(status) == 99) << "killed at call " << at;
    EXPECT_EQ(read_text("file"), finished ? NEW : OLD) << "killed at call " << at;
  }
  EXPECT_TRUE(finished);
}

}  // namespace
