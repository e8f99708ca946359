// Splitting of data into lines, and reading of whole files.

#include "util/lines.h"

#include <sys/stat.h>

#include <string>
#include <vector>

#include "each.h"
#include "test_folder.h"
#include "util/q_string.h"
#include "util/read_file.h"

namespace {

using Texts = std::vector<std::string>;

TEST(Lines, EndAtEachKindOfEndAndAtTheLimit) {
  const std::string full(Q_STRING_MAX, 'x');
  const std::string short_of_one = full.substr(1);
  expect_each<std::string, Texts>(
      [](const std::string& content) {
        const auto lines = Q_split_lines(content);
        return Texts(lines.begin(), lines.end());
      },
      {{"", {""}},
       {"\n", {"", ""}},
       {"a\nb", {"a", "b"}},
       {"a\r\nb\r\n", {"a", "", "b", "", ""}},
       {"a\rb\xFF\n", {"a", "b", "", ""}},
       {std::string("a\0b\nc", 5), {std::string("a\0b", 3), "c"}},
       {full + "\ny", {full, "y"}},
       {full + "y\nz", {full, "y", "z"}},
       {full + full + "\n", {full, full, ""}},
       {short_of_one + "\u00E9z\n", {short_of_one, "\u00E9z", ""}},
       {full.substr(2) + "\u00E9z", {full.substr(2) + "\u00E9", "z"}}});
}

TEST(Lines, TellWhetherMoreDataCouldChangeThem) {
  const std::string full(Q_STRING_MAX, 'x');
  using Parts = std::tuple<std::size_t, std::size_t, bool>;
  expect_each<std::string, Parts>(
      [](const std::string& data) {
        const Q_line line = Q_first_line(data);
        return Parts(line.text.size(), line.consumed, line.complete);
      },
      {{"", {0, 0, false}},
       {"ab", {2, 2, false}},
       {"\xFFz", {0, 1, true}},
       {full, {Q_STRING_MAX, Q_STRING_MAX, false}},  // its end may still come
       {full + "\r", {Q_STRING_MAX, Q_STRING_MAX + 1, true}},
       {full + "y", {Q_STRING_MAX, Q_STRING_MAX, true}}});
}

TEST(ReadText, TakesAllOfARegularFileThatIsNotTooLarge) {
  const Test_folder folder;
  const std::string bytes = std::string(200000, 'x') + std::string("\0\xFF\r\n\xEF\xBB\xBF", 7);
  write_text("file", bytes);
  write_text("marked", "\xEF\xBB\xBF" + bytes);
  for (const char* path : {"empty", "most", "more"}) write_text(path, "");
  std::filesystem::resize_file("most", Q_TEXT_FILE_MAX);
  std::filesystem::resize_file("more", Q_TEXT_FILE_MAX + 1);
  ASSERT_EQ(mkfifo("pipe", 0600), 0);
  std::filesystem::create_symlink("file", "link");
  std::filesystem::create_symlink("/dev/zero", "device");
  const std::string not_regular = "is not a regular file";
  expect_each<const char*, std::string>(
      [](const char* path) {
        Q_read_fault fault;
        return Q_read_text(path, fault).value_or(fault.text);
      },
      {{"file", bytes},
       {"link", bytes},
       {"marked", bytes},
       {"empty", ""},
       {"most", std::string(Q_TEXT_FILE_MAX, '\0')},
       {"more", "is larger than 64 MiB"},
       {"none", "cannot be opened: No such file or directory"},
       {"pipe", not_regular},
       {"device", not_regular},
       {".", not_regular}});
  EXPECT_EXIT(Q_read_text_or_die("none%n"), testing::ExitedWithCode(1),
              "^File 'none%n' not found\\.");
  EXPECT_EXIT(Q_read_text_or_die("pipe"), testing::ExitedWithCode(1),
              "^File '/.*/pipe' is not a regular");
}

}  // namespace
