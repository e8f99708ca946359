// Splitting of data into lines, and reading of whole files.

#include "util/lines.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "test_folder.h"
#include "util/q_string.h"
#include "util/read_file.h"

namespace {

TEST(SplitLines, EndsLinesAtEachKindOfEnd) {
  struct Case {
    std::string content;
    std::vector<std::string> lines;
  };
  const Case cases[] = {
      {"", {""}},
      {"\n", {"", ""}},
      {"a", {"a"}},
      {"a\n", {"a", ""}},
      {"a\nb", {"a", "b"}},
      {"a\r\nb\r\n", {"a", "", "b", "", ""}},
      {"a\rb\xFF"
       "c",
       {"a", "b", "c"}},
      {std::string("a\0b\nc", 5), {std::string("a\0b", 3), "c"}},
      {"\n\n\r\xFF", {"", "", "", "", ""}},
  };
  for (const Case& c : cases) {
    const auto lines = Q_split_lines(c.content);
    EXPECT_EQ(std::vector<std::string>(lines.begin(), lines.end()), c.lines)
        << testing::PrintToString(c.content);
  }
}

TEST(SplitLines, CutsLinesOverTheLimit) {
  const std::string full(Q_STRING_MAX, 'x');
  const std::string short_of_one = full.substr(1);
  struct Case {
    std::string name;
    std::string content;
    std::vector<std::string> lines;
  };
  const Case cases[] = {
      {"at the limit", full, {full}},
      {"at the limit, ended", full + "\ny", {full, "y"}},
      {"one over", full + "y", {full, "y"}},
      {"one over, ended", full + "y\nz", {full, "y", "z"}},
      {"twice the limit", full + full + "\n", {full, full, ""}},
      {"a character that would be torn", short_of_one + "\u00E9z\n", {short_of_one, "\u00E9z", ""}},
      {"a character that just fits", full.substr(2) + "\u00E9z", {full.substr(2) + "\u00E9", "z"}},
  };
  for (const Case& c : cases) {
    const auto lines = Q_split_lines(c.content);
    // The lines themselves are too long to be printed.
    EXPECT_TRUE(std::vector<std::string>(lines.begin(), lines.end()) == c.lines)
        << c.name << ": " << lines.size() << " lines, the first of " << lines[0].size() << " bytes";
  }
}

TEST(FirstLine, TellsWhetherMoreDataCouldChangeIt) {
  const std::string full(Q_STRING_MAX, 'x');
  struct Case {
    std::string data;
    std::size_t size;
    std::size_t consumed;
    bool complete;
  };
  const Case cases[] = {
      {"", 0, 0, false},
      {"ab", 2, 2, false},
      {"ab\n", 2, 3, true},
      {"\xFFz", 0, 1, true},
      {full, Q_STRING_MAX, Q_STRING_MAX, false},  // its end may still come
      {full + "\r", Q_STRING_MAX, Q_STRING_MAX + 1, true},
      {full + "y", Q_STRING_MAX, Q_STRING_MAX, true},
  };
  for (const Case& c : cases) {
    const Q_line line = Q_first_line(c.data);
    EXPECT_EQ(line.text.size(), c.size) << c.data.size() << " bytes";
    EXPECT_EQ(line.consumed, c.consumed) << c.data.size() << " bytes";
    EXPECT_EQ(line.complete, c.complete) << c.data.size() << " bytes";
  }
}

/// What is read of a file, or why it is not.
std::string outcome(const char* path) {
  Q_read_fault fault;
  const std::optional<std::string> text = Q_read_text(path, fault);
  return text.value_or(fault.text);
}

TEST(ReadText, TakesAllOfARegularFileThatIsNotTooLarge) {
  const Test_folder folder;
  const std::string bytes = std::string(200000, 'x') + std::string("\0\xFF\r\n\xEF\xBB\xBF", 7);
  write_text("file", bytes);
  write_text("marked", "\xEF\xBB\xBF" + bytes);
  write_text("empty", "");
  write_text("most", "");
  std::filesystem::resize_file("most", Q_TEXT_FILE_MAX);
  write_text("more", "");
  std::filesystem::resize_file("more", Q_TEXT_FILE_MAX + 1);
  ASSERT_EQ(mkfifo("pipe", 0600), 0);
  std::filesystem::create_symlink("file", "link");
  std::filesystem::create_symlink("/dev/zero", "device");
  const std::string not_regular = "is not a regular file";
  const struct {
    const char* path;
    std::string outcome;
  } cases[] = {
      {"file", bytes},
      {"link", bytes},
      {"marked", bytes},
      {"empty", ""},
      {"most", std::string(Q_TEXT_FILE_MAX, '\0')},
      {"more", "is larger than 64 MiB"},
      {"none", "cannot be opened: No such file or directory"},
      {"pipe", not_regular},
      {"device", not_regular},
      {".", not_regular},
  };
  for (const auto& c : cases)
    EXPECT_TRUE(outcome(c.path) == c.outcome) << c.path << ": " << outcome(c.path).substr(0, 100);
  EXPECT_EXIT(Q_read_text_or_die("none%n"), testing::ExitedWithCode(1),
              "^File 'none%n' not found\\.");
  EXPECT_EXIT(Q_read_text_or_die("pipe"), testing::ExitedWithCode(1),
              "^File '/.*/pipe' is not a regular");
}

}  // namespace
