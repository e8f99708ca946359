#include "companions/common/outputs.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>

#include "companions/common/error.h"
#include "companions/common/progress.h"
#include "test_folder.h"

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
