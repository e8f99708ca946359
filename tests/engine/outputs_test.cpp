#include "engine/base/outputs.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>

#include "engine/base/progress.h"
#include "engine/base/refusal.h"
#include "test_folder.h"

using namespace kvo::base;

namespace {

/// The call of a system's function that is to fail, and the calls of it up to now.
struct {
  std::string function;
  int at = 0, calls = 0;
} fault;

bool fails(const char* function) {
  if (fault.function != function || ++fault.calls != fault.at) return false;
  errno = EIO;
  return true;
}

}  // namespace

// The linker sends the calls of the engine through these.
#define CAN_FAIL(function, parameters, arguments)               \
  extern "C" int __real_##function parameters;                  \
  extern "C" int __wrap_##function parameters;                  \
  int __wrap_##function parameters {                            \
    return fails(#function) ? -1 : __real_##function arguments; \
  }
CAN_FAIL(rename, (const char* from, const char* to), (from, to))
CAN_FAIL(syncfs, (int fd), (fd))
CAN_FAIL(fsync, (int fd), (fd))
CAN_FAIL(mkdir, (const char* path, mode_t mode), (path, mode))
CAN_FAIL(unlink, (const char* path), (path))

namespace {

namespace fs = std::filesystem;

/// Every call on the way fails in turn: the folder is as it was, or the message says what is still
/// to come and the next command finds it done.
TEST(Outputs, SurviveADiskThatFailsAtAnyMoment) {
  const Test_folder folder;
  constexpr int MOST_CALLS = 50;
  const auto state = [] {
    std::string text;
    for (const char* name : {"a", "b", "gone", "pp/c", "bids/d"})
      text += fs::exists(name) ? read_text(name) + " " : "- ";
    return text;
  };
  for (const char* function : {"rename", "syncfs", "fsync", "mkdir", "unlink"}) {
    int failures = 0;
    for (int at = 1; at < MOST_CALLS; ++at) {
      SCOPED_TRACE(function + (" " + std::to_string(at)));
      for (const char* made : {"pp", "bids"}) fs::remove_all(made);
      fs::remove("b");
      for (const char* name : {"a", "gone"}) write_text(name, "old");
      std::string refusal;
      fault = {function, at, 0};
      try {
        Outputs outputs;
        for (const char* name : {"a", "b", "pp/c", "bids/d"}) outputs.write_text(name, "new");
        for (const char* name : {"gone", "a"}) outputs.remove(name);  // what has come again stays
        outputs.commit();
      } catch (const Refusal& reason) {
        refusal = reason.what();
      }
      const bool failed = fault.calls >= at;
      fault = {};
      if (refusal.empty()) {
        EXPECT_EQ(state(), "new new - new new ");
      } else if (refusal.starts_with("The results are complete, but ")) {
        EXPECT_EQ(recover_folder(), Leftovers::completed) << refusal;
        EXPECT_EQ(state(), "new new - new new ") << refusal;
      } else {
        EXPECT_EQ(state(), "old - old - - ") << refusal;
        EXPECT_EQ(recover_folder(), Leftovers::none) << refusal;
      }
      if (!failed) break;
      // An old file that stays hurts nobody.
      EXPECT_TRUE(function == std::string("unlink") || !refusal.empty());
      ++failures;
      ASSERT_LT(at + 1, MOST_CALLS);
    }
    EXPECT_GE(failures, 1) << function;
  }
}

TEST(Outputs, OfAStrangerReachNothingOutsideTheFolder) {
  const Test_folder folder;
  for (const char* path : {"linked", "work/.kvo_new"}) fs::create_directories(path);
  for (const char* file : {"victim", "linked/file"}) write_text(file, "safe");
  write_text("linked/moves", "move pp/file\nremove pp/file\n");
  fs::current_path("work");
  const auto recovered = [](const char* moves) {
    write_text(".kvo_new/moves", moves);
    EXPECT_EQ(recover_folder(), Leftovers::completed);
    EXPECT_EQ(read_text("../victim") + read_text("../linked/file"), "safesafe") << moves;
  };
  for (const char* file : {".kvo_new/x", ".kvo_new/.hidden"}) write_text(file, "evil");
  recovered(
      "move ../victim\nremove ../victim\nmove pp/../../victim\nremove /etc/hostname\nmove "
      ".hidden\n");
  EXPECT_TRUE(fs::is_empty("."));

  // Folders that are links to others.
  for (const char* link : {"pp", ".kvo_new/pp"}) {
    fs::create_directories(*link == 'p' ? ".kvo_new/pp" : ".kvo_new");
    if (*link == 'p') write_text(".kvo_new/pp/file", "evil");
    fs::remove_all("pp");
    if (*link != 'p') fs::create_directory("pp");
    fs::create_directory_symlink("../linked", link);
    recovered("move pp/file\nremove pp/file\n");
  }
  fs::create_directory_symlink("../linked", ".kvo_new");
  EXPECT_EQ(recover_folder(), Leftovers::discarded);
  EXPECT_EQ(read_text("../linked/file"), "safe");
}

TEST(Markup, IsNotCutWithinAReference) {
  const std::string cut = markup_of(std::string(60000, '&'));
  EXPECT_LT(cut.size(), 49999U);
  EXPECT_TRUE(cut.ends_with("&amp;"));
}

}  // namespace
