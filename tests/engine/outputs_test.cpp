#include "engine/base/outputs.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
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
  int at = 0;
  int calls = 0;
} fault;

bool fails(const char* function) {
  if (fault.function != function || ++fault.calls != fault.at) return false;
  errno = EIO;
  return true;
}

}  // namespace

// The linker sends the calls of the engine through these.
extern "C" {
int __real_rename(const char* from, const char* to);
int __wrap_rename(const char* from, const char* to) {
  return fails("rename") ? -1 : __real_rename(from, to);
}
int __real_syncfs(int fd);
int __wrap_syncfs(int fd) {
  return fails("syncfs") ? -1 : __real_syncfs(fd);
}
int __real_fsync(int fd);
int __wrap_fsync(int fd) {
  return fails("fsync") ? -1 : __real_fsync(fd);
}
int __real_mkdir(const char* path, mode_t mode);
int __wrap_mkdir(const char* path, mode_t mode) {
  return fails("mkdir") ? -1 : __real_mkdir(path, mode);
}
int __real_unlink(const char* path);
int __wrap_unlink(const char* path) {
  return fails("unlink") ? -1 : __real_unlink(path);
}
}

namespace {

namespace fs = std::filesystem;

class OutputsTest : public testing::Test {
 protected:
  void put(const fs::path& path, const std::string& text) {
    if (path.has_parent_path()) fs::create_directories(path.parent_path());
    write_text(path, text);
  }
  Test_folder folder_;
};

TEST_F(OutputsTest, TakeTheirPlacesTogetherOrNotAtAll) {
  put("a", "old");
  put("gone", "old");
  {
    Outputs outputs;
    outputs.write_text("a", "new");
    outputs.remove("gone");
    EXPECT_EQ(::read_text("a"), "old");
  }
  EXPECT_EQ(::read_text("a"), "old");
  EXPECT_TRUE(fs::exists("gone"));
  EXPECT_FALSE(fs::exists(".kvo_new"));
  {
    Outputs outputs;
    outputs.write_text("a", "new");
    outputs.write_text("pp/b", "new");
    outputs.remove("gone");
    outputs.remove("a");
    outputs.commit();
  }
  EXPECT_EQ(::read_text("a"), "new");
  EXPECT_EQ(::read_text("pp/b"), "new");
  EXPECT_FALSE(fs::exists("gone"));
  EXPECT_FALSE(fs::exists(".kvo_new"));
}

TEST_F(OutputsTest, RefuseAPlaceThatIsTakenBeforeAnythingMoves) {
  const auto attempt = [] {
    Outputs outputs;
    outputs.write_text("a", "new");
    outputs.write_text("pp/b", "new");
    outputs.commit();
  };
  fs::create_directories("pp/b");
  EXPECT_THROW(attempt(), Refusal);
  fs::remove_all("pp");
  fs::create_directory("elsewhere");
  fs::create_directory_symlink("elsewhere", "pp");
  EXPECT_THROW(attempt(), Refusal);
  EXPECT_FALSE(fs::exists("a"));
  EXPECT_TRUE(fs::is_empty("elsewhere"));
}

TEST_F(OutputsTest, AreDiscardedOrFinishedAfterACrash) {
  EXPECT_EQ(recover_folder(), Leftovers::none);
  put(".kvo_new/a", "half");
  EXPECT_EQ(recover_folder(), Leftovers::discarded);
  EXPECT_FALSE(fs::exists(".kvo_new"));
  EXPECT_FALSE(fs::exists("a"));

  // A crash after "done" had taken its place.
  put("done", "new");
  put("gone", "old");
  put(".kvo_new/a", "new");
  put(".kvo_new/pp/b", "new");
  put(".kvo_new/moves", "move done\nmove a\nmove pp/b\nremove gone\n");
  EXPECT_EQ(recover_folder(), Leftovers::completed);
  EXPECT_EQ(::read_text("done"), "new");
  EXPECT_EQ(::read_text("a"), "new");
  EXPECT_EQ(::read_text("pp/b"), "new");
  EXPECT_FALSE(fs::exists("gone"));
  EXPECT_FALSE(fs::exists(".kvo_new"));
}

/// Every call on the way fails in turn: the folder is as it was, or the message says what is still
/// to come and the next command finds it done.
TEST_F(OutputsTest, SurviveADiskThatFailsAtAnyMoment) {
  constexpr int MOST_CALLS = 50;
  const auto state = [] {
    std::string text;
    for (const char* name : {"a", "b", "gone", "pp/c"})
      text += fs::exists(name) ? ::read_text(name) + " " : "- ";
    return text;
  };
  for (const char* function : {"rename", "syncfs", "fsync", "mkdir", "unlink"}) {
    int failures = 0;
    for (int at = 1; at < MOST_CALLS; ++at) {
      SCOPED_TRACE(function + (" " + std::to_string(at)));
      fs::remove_all("pp");
      fs::remove("b");
      put("a", "old");
      put("gone", "old");
      std::string refusal;
      fault = {function, at, 0};
      try {
        Outputs outputs;
        for (const char* name : {"a", "b", "pp/c"}) outputs.write_text(name, "new");
        outputs.remove("gone");
        outputs.commit();
      } catch (const Refusal& reason) {
        refusal = reason.what();
      }
      const bool failed = fault.calls >= at;
      fault = {};
      if (refusal.empty()) {
        EXPECT_EQ(state(), "new new - new ");
      } else if (refusal.starts_with("The results are complete, but ")) {
        EXPECT_EQ(recover_folder(), Leftovers::completed) << refusal;
        EXPECT_EQ(state(), "new new - new ") << refusal;
      } else {
        EXPECT_EQ(state(), "old - old - ") << refusal;
        EXPECT_EQ(recover_folder(), Leftovers::none) << refusal;
      }
      if (!failed) break;
      ++failures;
      ASSERT_LT(at + 1, MOST_CALLS);
    }
    EXPECT_GE(failures, 1) << function;
  }
}

TEST_F(OutputsTest, OfAStrangerReachNothingOutsideTheFolder) {
  put("victim", "safe");
  put("work/.kvo_new/x", "evil");
  put("work/.kvo_new/moves",
      "move ../victim\nremove ../victim\nmove pp/../../victim\nremove /etc/hostname\nmove "
      ".hidden\n");
  put("linked/file", "safe");
  fs::current_path("work");
  EXPECT_EQ(recover_folder(), Leftovers::completed);
  EXPECT_EQ(::read_text("../victim"), "safe");
  EXPECT_TRUE(fs::is_empty("."));

  // Folders that are links to others.
  put("../linked/moves", "move pp/file\nremove pp/file\n");
  for (const char* link : {"pp", ".kvo_new/pp"}) {
    put(".kvo_new/moves", "move pp/file\nremove pp/file\n");
    if (*link == 'p') put(".kvo_new/pp/file", "evil");
    fs::create_directory_symlink(fs::absolute("../linked"), link);
    EXPECT_EQ(recover_folder(), Leftovers::completed);
    EXPECT_EQ(::read_text("../linked/file"), "safe") << link;
    fs::remove("pp");
  }
  fs::create_directory_symlink("../linked", ".kvo_new");
  EXPECT_EQ(recover_folder(), Leftovers::discarded);
  EXPECT_EQ(::read_text("../linked/file"), "safe");
  fs::current_path("..");
}

TEST_F(OutputsTest, OfTwoCommandsAtOnceAreRefused) {
  const Outputs first;
  EXPECT_THROW(Outputs(), Refusal);
  EXPECT_THROW(recover_folder(), Refusal);
}

TEST(Markup, IsValidWhateverTheTextWas) {
  struct Case {
    std::string text, markup;
  };
  const Case cases[] = {
      {"a & b", "a &amp; b"},
      {"<b>x</b>", "&lt;b&gt;x&lt;/b&gt;"},
      {"two\nlines\r\x1b", "two lines  "},
      {"caf\xE9", "caf\xEF\xBF\xBD"},
      {"\xC3\xA9", "\xC3\xA9"},
  };
  for (const Case& c : cases) EXPECT_EQ(markup_of(c.text), c.markup) << c.text;
  const std::string cut = markup_of(std::string(60000, '&'));
  EXPECT_LT(cut.size(), 49999U);
  EXPECT_TRUE(cut.ends_with("&amp;"));
}

}  // namespace
