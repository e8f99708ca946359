// Every system call of the writer of whole files fails in turn, or is where the program is killed.
// The linker sends the calls through the functions below.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <vector>

#include "test_folder.h"
#include "util/whole_file.h"

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

extern "C" {
ssize_t __real_write(int fd, const void* data, size_t size);
ssize_t __wrap_write(int fd, const void* data, size_t size) {
  const bool is_short = plan.kind == Fault::short_write && plan.countdown == 1;
  if (fails_now()) return -1;
  return __real_write(fd, data, is_short && size > 1 ? size / 2 : size);
}
int __real_mkostemp(char* pattern, int flags);
int __wrap_mkostemp(char* pattern, int flags) {
  return fails_now() ? -1 : __real_mkostemp(pattern, flags);
}
int __real_fchmod(int fd, mode_t mode);
int __wrap_fchmod(int fd, mode_t mode) {
  return fails_now() ? -1 : __real_fchmod(fd, mode);
}
int __real_fsync(int fd);
int __wrap_fsync(int fd) {
  return fails_now() ? -1 : __real_fsync(fd);
}
int __real_rename(const char* from, const char* to);
int __wrap_rename(const char* from, const char* to) {
  return fails_now() ? -1 : __real_rename(from, to);
}
int __real_renameat2(int from_folder, const char* from, int to_folder, const char* to,
                     unsigned flags);
int __wrap_renameat2(int from_folder, const char* from, int to_folder, const char* to,
                     unsigned flags) {
  return fails_now() ? -1 : __real_renameat2(from_folder, from, to_folder, to, flags);
}
}

namespace {

namespace fs = std::filesystem;

constexpr const char* OLD = "the old content\n";
constexpr const char* NEW = "the new content, which is longer\n";
constexpr int MOST_CALLS = 50;

std::vector<std::string> names() {
  std::vector<std::string> list;
  for (const auto& entry : fs::directory_iterator(".")) list.push_back(entry.path().filename());
  return list;
}

using Writer = bool (*)(const char* path, std::string_view text);

bool write_with(Fault kind, int at, int error, Writer writer = Q_write_whole) {
  plan = {kind, at, error};
  calls = 0;
  const bool done = writer("file", NEW);
  plan = {};
  return done;
}

TEST(WholeFileFaults, EachFailingCallLeavesTheOldFile) {
  for (const int error : {ENOSPC, EIO, EDQUOT}) {
    const struct {
      bool existed;
      Writer writer;
    } cases[] = {{true, Q_write_whole}, {false, Q_write_whole}, {false, Q_create_whole}};
    for (const auto& [existed, writer] : cases) {
      int at = 1;
      for (; at < MOST_CALLS; ++at) {
        const Test_folder folder;
        if (existed) write_text("file", OLD);
        errno = 0;
        if (write_with(Fault::error, at, error, writer)) {
          EXPECT_GT(at, calls) << "a failure was passed over";
          break;
        }
        EXPECT_EQ(errno, error) << "call " << at;
        EXPECT_EQ(names().size(), existed ? 1U : 0U) << "call " << at;
        if (existed) {
          EXPECT_EQ(read_text("file"), OLD) << "call " << at;
        }
      }
      EXPECT_GE(at, 6) << "temporary name, write, mode, flush and rename are each made to fail";
      EXPECT_LT(at, MOST_CALLS);
    }
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
    EXPECT_EQ(names().size(), 1U);
  }
}

TEST(WholeFileFaults, ShortWritesAreGoneOnWith) {
  for (int at = 1; at <= 3; ++at) {
    const Test_folder folder;
    EXPECT_TRUE(write_with(Fault::short_write, at, 0)) << at;
    EXPECT_EQ(read_text("file"), NEW) << at;
  }
}

TEST(WholeFileFaults, AKillAtAnyCallLeavesAWholeFile) {
  bool finished = false;
  for (int at = 1; at < MOST_CALLS && !finished; ++at) {
    const Test_folder folder;
    write_text("file", OLD);
    const pid_t child = fork();
    if (child == 0) _exit(write_with(Fault::kill, at, 0) ? 0 : 1);
    int status = 0;
    waitpid(child, &status, 0);
    finished = WIFEXITED(status) && WEXITSTATUS(status) == 0;
    EXPECT_TRUE(finished || WEXITSTATUS(status) == 99) << "call " << at;
    EXPECT_EQ(read_text("file"), finished ? NEW : OLD) << "call " << at;
  }
  EXPECT_TRUE(finished);
}

}  // namespace
