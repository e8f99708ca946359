// What a batch file's content stands for, and what its lines do.

#include "shell/batch_text.h"

#include <gmock/gmock.h>

#include "each.h"
#include "util/q_string.h"

namespace {

using testing::HasSubstr;
using Texts = std::vector<std::string>;

TEST(BatchText, IsTheFileWithoutItsLastLineEnd) {
  expect_each<std::string, std::string>(
      [](const std::string& file) { return Q_show_batch(file).text; },
      {{"", ""},
       {"\n", ""},
       {"\n\n", "\n"},
       {"a", "a"},
       {"# <b>&amp;\na\n\n", "# <b>&amp;\na\n"},
       {"a\r\nb\r\n", "a\n\nb\n"},
       {"a\rb\xFF!", "a\nb\n!"},
       {"\u00E9\u2400\n\xE9\x80\n\xE9", "\u00E9\u2400\n\u00E9\u0080\n\u00E9"},
       {std::string("\xE9\0\n\u00E9\0\n", 7), "\u00E9\u2400\n\u00E9\u2400"}});
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

TEST(BatchText, HasLines) {
  expect_each<std::string, Texts>(Q_batch_lines, {{"", {""}},
                                                  {"a", {"a"}},
                                                  {"\n\n", {"", "", ""}},
                                                  {"# c\n\nmean\r\n", {"# c", "", "mean\r", ""}}});
  const std::string full(Q_STRING_MAX, 'x');
  EXPECT_EQ(Q_batch_long_line({"", full}), std::nullopt);
  EXPECT_EQ(Q_batch_long_line({full, full + "x", full + "x"}), std::optional<std::size_t>(2));
}

TEST(BatchText, TellsWhatTheShellRuns) {
  for (const char* line :
       {"", " # a; b", "M = mean female", "pp gray_matter, 1.0, 20, gray_matter, 500",
        "a \"/x; y/it's\", 'b > `c` $(d)'", "a \\; b \"\\`\\$(c)\" $HOME", "a #b; c", "a 'b; c"})
    EXPECT_EQ(Q_batch_shell_lines({line}), "") << line;
  for (const char* line : {"a#; b", "a\\ #; b", "a; b", "a | b", "a (b)", "a `b`", "a $(b)",
                           "a \"$(b)\"", "a 'b' ${c:-`d`}", "a \\\\; b"})
    EXPECT_NE(Q_batch_shell_lines({line}), "") << line;
  EXPECT_EQ(Q_batch_shell_lines({"a & b", "c", "d < e", "f > g"}),
            "\n1: a &amp; b\n3: d &lt; e\n4: f &gt; g");
}

TEST(BatchText, IsOverwrittenWithoutAQuestionWhenNothingIsLost) {
  const std::tuple<std::optional<std::string>, std::optional<std::string>, const char*> cases[] = {
      // What was loaded, what is there now, and a part of the question.
      {"a\n", "a\n", ""},
      {"a\n", "new\n", ""},
      {"a\n", "b\n", "is not the one that was loaded"},
      {std::nullopt, "b\n", "is not the one that was loaded"},
      {"a\n", std::nullopt, "is not the one that was loaded"},
      {"a\xFF", "a\xFF", "has bytes of value 255"}};
  for (const auto& [known, on_disk, question] : cases) {
    const std::string asked = Q_batch_overwrite_question(known, on_disk, "new\n");
    EXPECT_THAT(asked, HasSubstr(question));
    EXPECT_EQ(asked.empty(), *question == '\0') << asked;
  }
}

}  // namespace
