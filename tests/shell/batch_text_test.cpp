// What a batch file's content stands for, without a window.

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "shell/batch_text.h"
#include "util/q_string.h"

namespace {

TEST(BatchText, IsTheFileWithoutItsLastLineEnd) {
  struct Case {
    std::string file;
    std::string pane;
  };
  const Case cases[] = {
      {"", ""},
      {"\n", ""},
      {"\n\n", "\n"},
      {"a", "a"},
      {"a\n", "a"},
      {"a\n\n", "a\n"},
      {"# comment\nmean\n\n", "# comment\nmean\n"},
      {"a\nb", "a\nb"},  // no final line feed: the last line is complete
      {"a\r\nb\r\n", "a\n\nb\n"},
      {"a\rb\xFF"
       "c",
       "a\nb\nc"},
      {"<b>&amp;", "<b>&amp;"},
      {"\u00E9\u2400\n\xE9\x80\n\xE9", "\u00E9\u2400\n\u00E9\u0080\n\u00E9"},
      {std::string("\xE9\0\n\u00E9\0\n", 7), "\u00E9\u2400\n\u00E9\u2400"},
      {std::string("\0", 1), "\u2400"},
  };
  for (const Case& c : cases)
    EXPECT_EQ(Q_show_batch(c.file).text, c.pane) << testing::PrintToString(c.file);
}

TEST(BatchText, KeepsTheBytesOfLinesThatAreAsTheyWereShown) {
  const std::string file("# caf\xE9\nmean\n\u00E9\na\0b\n", 19);
  const Q_batch_shown shown = Q_show_batch(file);
  EXPECT_EQ(shown.text, "# caf\u00E9\nmean\n\u00E9\na\u2400b");
  EXPECT_EQ(Q_batch_content(shown.text, shown), file);
  EXPECT_EQ(Q_batch_content("\u00E9\n\u00E9", Q_show_batch("\xE9\n\u00E9\n")), "\u00E9\n\u00E9\n");
  EXPECT_EQ(Q_batch_content("a\u2400b\nx\n# caf\u00E9s", shown),
            std::string("a\0b\nx\n# caf\u00E9s\n", 15));
}

TEST(BatchLines, AreSplitAtEveryLineFeed) {
  struct Case {
    std::string text;
    std::vector<std::string> lines;
  };
  const Case cases[] = {
      {"", {""}},
      {"a", {"a"}},
      {"a\n", {"a", ""}},
      {"\n\n", {"", "", ""}},
      {"# c\n\nmean\r", {"# c", "", "mean\r"}},
  };
  for (const Case& c : cases)
    EXPECT_EQ(Q_batch_lines(c.text), c.lines) << testing::PrintToString(c.text);
}

TEST(BatchLines, OverTheLimitAreFound) {
  const std::string full(Q_STRING_MAX, 'x');
  EXPECT_EQ(Q_batch_long_line({}), std::nullopt);
  EXPECT_EQ(Q_batch_long_line({"", full, full}), std::nullopt);
  EXPECT_EQ(Q_batch_long_line({full + "x"}), std::optional<std::size_t>(1));
  EXPECT_EQ(Q_batch_long_line({"", full, full + "x", full + "x"}), std::optional<std::size_t>(3));
}

TEST(BatchText, TellsWhatTheShellRuns) {
  const struct {
    const char* line;
    bool runs;
  } cases[] = {
      {"", false},
      {" # a; b", false},
      {"M = mean female", false},
      {"pp gray_matter, 1.0, 20, gray_matter, 500", false},
      {"a \"/x; y/it's\", 'b > `c` $(d)'", false},
      {"a \\; b \"\\`\\$(c)\" $HOME", false},
      {"a #b; c", false},
      {"a 'b; c", false},
      {"a#; b", true},
      {"a\\ #; b", true},
      {"a; b", true},
      {"a & b", true},
      {"a | b", true},
      {"a > b", true},
      {"a < b", true},
      {"a (b)", true},
      {"a `b`", true},
      {"a $(b)", true},
      {"a \"$(b)\" \"`c`\"", true},
      {"a 'b' ${c:-`d`}", true},
      {"a \\\\; b", true},
  };
  for (const auto& c : cases) EXPECT_NE(Q_batch_shell_lines({c.line}).empty(), c.runs) << c.line;
}

}  // namespace
