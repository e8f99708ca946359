// The settings file's format: what each line sets, what is written and what a file cannot hold.

#include "workspace/files/settings_file.h"

#include "each.h"

namespace {

using Values = std::vector<std::string>;

Values values_of(const Kvo_settings& s) {
  return {s.working_directory.str(), s.brain_viewer.str(), s.brain_viewer_executable.str()};
}

TEST(SettingsFile, ReadsLines) {
  const std::string full(Q_STRING_MAX, 'x');
  const Values defaults{"d", "v", "e"};
  expect_each<std::string, Values>(
      [](const std::string& content) {
        Kvo_settings settings{"d", "v", "e"};
        kvo_read_settings(content, settings);
        return values_of(settings);
      },
      {{"", defaults},
       {"working directory = /a\r\nbrain viewer = fslview\nbrain viewer executable = /b\n\n",
        {"/a", "fslview", "/b"}},
       {"  working\t directory   =\t/a  b\t c \n", {"/a b c", "v", "e"}},
       {"working directory=/a=b=c", {"/a", "v", "e"}},
       {"Working directory = /a\nworkingdirectory = /b\n# working directory = /c\n", defaults},
       {"working directory == = /a\n", {"", "v", "e"}},
       {"== working directory === /a\n", {"/a", "v", "e"}},
       {"brain viewer =\nbrain viewer = \nbrain viewer\nbrain viewer ==\n= x\n=\n", defaults},
       {"brain viewer = a\nunknown = x\nbrain viewer = b\nbrain viewer =\n", {"d", "b", "e"}},
       {"brain viewer = %s%n\xff brain viewer executable = \xc3\xa9\"'\n",
        {"d", "%s%n", "\xc3\xa9\"'"}},
       {"working directory = /" + full + "=brain viewer = z\n",
        {"/" + full.substr(21), "v", "e"}}});
}

TEST(SettingsFile, WritesThreeLinesAndAnEmptyOneAndKnowsWhatTheyCannotHold) {
  EXPECT_EQ(kvo_settings_text({"/a\nbrain viewer = x\r\xff", "%s", ""}),
            "working directory = /a brain viewer = x  \nbrain viewer = %s\n"
            "brain viewer executable = \n\n");
  // What the next start makes of an executable; nothing when it gives it back.
  expect_each<std::string, std::string>(
      [](const std::string& executable) {
        const auto lost = kvo_lost_settings({"/a b", "", executable.c_str()});
        if (lost.empty()) return std::string();
        EXPECT_STREQ(lost[0].key, "brain viewer executable");
        EXPECT_EQ(lost[0].value, executable.c_str());
        return lost[0].read_back.str();
      },
      {{"", ""},
       {"/a b/\xc3\xa9 '\"$(x)\" 100%s", ""},
       {"/a=b", "/a"},
       {"/a  b", "/a b"},
       {"/a\tb", "/a b"},
       {"/a ", "/a"},
       {"/a\nb\xff", "/a b"}});
}

}  // namespace
