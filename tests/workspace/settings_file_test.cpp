// The settings file's format: what each line sets, what is written and what a file cannot hold.

#include "workspace/files/settings_file.h"

#include <gtest/gtest.h>

namespace {

using Values = std::vector<std::string>;

Values values_of(const Kvo_settings& s) {
  return {s.working_directory.str(), s.brain_viewer.str(), s.brain_viewer_executable.str()};
}

TEST(SettingsFile, ReadsLines) {
  const struct {
    std::string content;
    Values values;  // over the defaults "d", "v" and "e"
  } cases[] = {
      {"", {"d", "v", "e"}},
      {"working directory = /a\nbrain viewer = fslview\nbrain viewer executable = /b\n\n",
       {"/a", "fslview", "/b"}},
      {"working directory = /a\r\nbrain viewer = fslview\r\n", {"/a", "fslview", "e"}},
      {"  working\t directory   =\t/a  b\t c \n", {"/a b c", "v", "e"}},
      {"working directory=/a", {"/a", "v", "e"}},
      {"Working directory = /a\nworkingdirectory = /b\n", {"d", "v", "e"}},
      {"working directory = /a=b=c\n", {"/a", "v", "e"}},
      {"working directory == = /a\n", {"", "v", "e"}},
      {"== working directory === /a\n", {"/a", "v", "e"}},
      {"brain viewer =\nbrain viewer = \nbrain viewer\nbrain viewer ==\n= fslview\n=\n",
       {"d", "v", "e"}},
      {"brain viewer = a\nunknown = x\nbrain viewer = b\n", {"d", "b", "e"}},
      {"brain viewer = a\nbrain viewer =\n", {"d", "a", "e"}},
      {"# working directory = /a\n", {"d", "v", "e"}},
      {"brain viewer = %s%n\xff"
       "brain viewer executable = \xc3\xa9\"'\n",
       {"d", "%s%n", "\xc3\xa9\"'"}},
      {"working directory = /" + std::string(60000, 'x') + "=brain viewer = z\n",
       {"/" + std::string(Q_STRING_MAX - 21, 'x'), "v", "e"}},
  };
  for (const auto& c : cases) {
    Kvo_settings settings{"d", "v", "e"};
    kvo_read_settings(c.content, settings);
    EXPECT_EQ(values_of(settings), c.values) << testing::PrintToString(c.content.substr(0, 200));
  }
}

TEST(SettingsFile, WritesThreeLinesAndAnEmptyOne) {
  EXPECT_EQ(kvo_settings_text({"/a b/\xc3\xa9", "mricron", ""}),
            "working directory = /a b/\xc3\xa9\nbrain viewer = mricron\n"
            "brain viewer executable = \n\n");
  EXPECT_EQ(kvo_settings_text({"/a\nbrain viewer = x\r\xff", "%s", ""}),
            "working directory = /a brain viewer = x  \nbrain viewer = %s\n"
            "brain viewer executable = \n\n");
}

TEST(SettingsFile, KnowsWhatItCannotHold) {
  const struct {
    const char* folder;
    const char* read_back;  // null: the file gives the folder back
  } cases[] = {
      {"/a/b", nullptr},
      {"/a b/c d", nullptr},
      {"/\xc3\xa9/'q'/\"$(x)\"/100%", nullptr},
      {"", nullptr},
      {"/a=b", "/a"},
      {"/a  b", "/a b"},
      {"/a\tb", "/a b"},
      {"/a ", "/a"},
      {"/a\nb", "/a b"},
      {"/a\xff"
       "b",
       "/a b"},
  };
  for (const auto& c : cases) {
    const auto lost = kvo_lost_settings({c.folder, "mricron", "/usr/bin/mricron"});
    ASSERT_EQ(lost.size(), c.read_back == nullptr ? 0 : 1) << c.folder;
    if (lost.empty()) continue;
    EXPECT_STREQ(lost[0].key, "working directory");
    EXPECT_EQ(lost[0].value, c.folder);
    EXPECT_EQ(lost[0].read_back, c.read_back) << c.folder;
  }
  const auto executable = kvo_lost_settings({"/a", "", "/b=c"});
  ASSERT_EQ(executable.size(), 1);
  EXPECT_STREQ(executable[0].key, "brain viewer executable");
}

}  // namespace
