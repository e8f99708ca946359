// Text tables: what each kind of line becomes, the operations' checks, and files written back.

#include "workspace/files/text_table.h"

#include <sys/stat.h>

#include <ctime>

#include "each.h"
#include "file_size_limit.h"
#include "test_folder.h"
#include "util/q_string.h"

namespace {

using testing::ExitedWithCode;

const Q_cell ABSENT = std::nullopt;
using Rows = std::vector<std::vector<Q_cell>>;

Rows rows_of(const Q_table& table) {
  Rows rows;
  for (long row = 0; row < Q_table_nrow(table); ++row) {
    rows.emplace_back();
    for (long column = 0; column < Q_table_ncol(table); ++column)
      rows.back().push_back(TABLE(table, row, column));
  }
  return rows;
}

Q_table loaded(std::string_view content) {
  Q_table table;
  Q_table_load_text(table, content);
  return table;
}

/// A table of the given rows, all equally long.
Q_table table_of(const Rows& rows) {
  Q_table table{std::to_string(rows.size()), std::to_string(rows.at(0).size())};
  for (const auto& row : rows) table.insert(table.end(), row.begin(), row.end());
  return table;
}

TEST(TextTable, LoadsLines) {
  const std::string full(Q_STRING_MAX, 'x');
  expect_each<std::string, Rows>(
      [](const std::string& content) { return rows_of(loaded(content)); },
      {{"", {}},
       {"\n \t \n\r\n", {}},
       {"a b,c", {{"a", "b", "c"}}},
       {"a, b\n", {{"a", "", "b"}}},
       {"a\tb\tc\n1\t\t2\n", {{"a", "b", "c"}, {"1", "", "2"}}},
       {"a b\n x\n\ty\n,z\n", {{"a", "b"}, {"", "x"}, {"", "y"}, {"", "z"}}},
       {"a\tb\n1\t2\t3 4,5\n", {{"a", "b"}, {"1", "2"}}},
       {"a b c\n1\n1 2\n1,\n",
        {{"a", "b", "c"}, {"1", ABSENT, ABSENT}, {"1", "2", ABSENT}, {"1", "", ABSENT}}},
       {"a,b,\n1,2,3", {{"a", "b", ""}, {"1", "2", "3"}}},
       {"\n\na\tb\t\r\n\n \r\n1\t2\t\t \n\n", {{"a", "b"}, {"1", "2"}}},
       {"a b\r1 2\xff"
        "3 4",
        {{"a", "b"}, {"1", "2"}, {"3", "4"}}},
       {"a b\n%s%n 100%\n", {{"a", "b"}, {"%s%n", "100%"}}},
       {"a\tb\n\vx\v\f\vy\v\tz\f\n", {{"a", "b"}, {"x y", "z"}}},
       {"\xc3\xa9tude n1\n\"M\xc3\xbcller 1\"\n",
        {{"\xc3\xa9tude", "n1"}, {"\"M\xc3\xbcller", "1\""}}},
       {"a b\n" + full + "yz 1\n", {{"a", "b"}, {full, ABSENT}, {"yz", "1"}}}});
  EXPECT_EQ(loaded("a b\n1 2\n3\n"), (Q_table{"3", "2", "a", "b", "1", "2", "3", ABSENT}));

  EXPECT_EQ(Q_table_split_line(" a,,b\vc\t d,\t "),
            (std::vector<std::string>{"", "a", "", "b c", "", "d", ""}));

  // A table that has rows already takes all lines as rows.
  Q_table table = loaded("a b\n1 2\n");
  Q_table_load_text(table, "c d e\n\n3\n");
  EXPECT_EQ(rows_of(table), (Rows{{"a", "b"}, {"1", "2"}, {"c", "d"}, {"3", ABSENT}}));
}

TEST(TextTable, TellsWhatLoadingLoses) {
  const std::string full(Q_STRING_MAX, 'x');
  const std::string separators = " (each blank, tab or comma begins a new cell)";
  expect_each<std::string, std::string>(
      [](const std::string& content) { return Q_table_loss(content).value_or(""); },
      {{"", ""},
       {"a,b\n1\n\n1,2\n1\t2\t\n1 2,,\n" + full, ""},
       {"\n\na,age\r\n1,2\r\n1,31,5\r\n",
        "line 5: there are 3 cells, but the header has 2 columns" + separators},
       {"a\r1\r1,,2", "line 3: there are 3 cells, but the header has 1 column" + separators},
       {"a b\n" + full + "x\n", "line 2: it has more than 49999 characters"},
       {"a b\n1\xff!\n", "line 2: it has a byte of value 255"}});
}

TEST(TextTable, TransposesAndWritesTransposed) {
  const std::tuple<Rows, Rows, std::string> cases[] = {
      // The rows, those when transposed, and the text that is written.
      {{{"a", "b", "c"}, {"1", ABSENT, ""}},
       {{"a", "1"}, {"b", ABSENT}, {"c", ""}},
       "a\t1\t\nb\tNA\t\nc\t\t\n"},
      {{{"a", "b"}, {"%d", "%n"}}, {{"a", "%d"}, {"b", "%n"}}, "a\t%d\t\nb\t%n\t\n"},
      {{{"a"}}, {{"a"}}, "a\t\n"},
      {{{"a"}, {"b"}}, {{"a", "b"}}, "a\tb\t\n"}};
  for (const auto& [before, after, text] : cases) {
    Q_table table = table_of(before);
    EXPECT_EQ(Q_table_text(table), text);
    Q_table_t(table);
    EXPECT_EQ(rows_of(table), after) << text;
    Q_table_t(table);
    EXPECT_EQ(rows_of(table), before);
  }
  Q_table empty;
  EXPECT_EQ(Q_table_text(empty), "");
  Q_table_t(empty);
  EXPECT_EQ(Q_table_nrow(empty) + Q_table_ncol(empty), 0);
}

TEST(TextTable, RowsComeAndGoWithoutStaleCells) {
  Q_table table = table_of({{"a", "b"}, {"1", "2"}, {"3", "4"}});
  Q_table_remove_row(table, 1);
  EXPECT_EQ(rows_of(table), (Rows{{"a", "b"}, {"3", "4"}}));
  Q_table_increase_nrow(table);
  EXPECT_EQ(rows_of(table), (Rows{{"a", "b"}, {"3", "4"}, {ABSENT, ABSENT}}));
  Q_table_set(table, 2, 1, "x");
  table[0] = "1";  // as callers may, without releasing the cells
  Q_table_load_text(table, "y\n");
  EXPECT_EQ(rows_of(table), (Rows{{"a", "b"}, {"y", ABSENT}}));
  table[0] = "4";
  Q_table_set(table, 3, 0, "z");
  Q_table_remove_row(table, 1);
  EXPECT_EQ(rows_of(table), (Rows{{"a", "b"}, {ABSENT, "x"}, {"z", ABSENT}}));

  Q_table none;
  Q_table_increase_nrow(none);
  EXPECT_EQ(none.at(0), "1");
  Q_table_remove_row(none, 0);
  EXPECT_EQ(none.at(0), "0");
}

TEST(TextTable, FindsRowsByTheirFirstCell) {
  const Q_table table = table_of({{"a", "x"}, {ABSENT, "y"}, {"b", "z"}, {"a", "w"}});
  expect_each<const char*, long>(
      [&table](const char* name) { return Q_get_table_row_pos(table, name); },
      {{"a", 0}, {"b", 2}, {"A", -1}, {"y", -1}, {"", -1}, {"a ", -1}});
  EXPECT_EQ(Q_get_table_row_pos_or_die(table, "b"), 2);
  EXPECT_EQ(Q_get_table_row_pos({}, "a"), -1);
}

TEST(TextTableDeathTest, ChecksEveryAccess) {
  const Q_table table = table_of({{"a", "b"}});
  const std::tuple<const char*, Q_table, long, long> cases[] = {
      // What there is not, and the cell that is asked for.
      {"row", {}, 0, 0},
      {"row", {ABSENT, "1", "a"}, 0, 0},
      {"row", {"0", "1", "a"}, 0, 0},
      {"row", table, -1, 0},
      {"row", table, 1, 2},
      {"column", {"1"}, 0, 0},
      {"column", table, 0, -1},
      {"column", table, 0, 2}};
  for (const auto& [missing, asked, row, column] : cases) {
    SCOPED_TRACE(testing::PrintToString(asked) + std::to_string(row) + " " +
                 std::to_string(column));
    const std::string message = std::string("Table does not have this ") + missing + "\\.";
    EXPECT_EXIT(TABLE(asked, row, column), ExitedWithCode(1), message);
    Q_table copy = asked;
    EXPECT_EXIT(Q_table_set(copy, row, column, "x"), ExitedWithCode(1), message);
  }
  EXPECT_EXIT(
      {
        Q_table copy = table;
        Q_table_remove_row(copy, 1);
      },
      ExitedWithCode(1), "this row");
  EXPECT_EXIT(Q_get_table_row_pos({"1"}, "a"), ExitedWithCode(1), "this column");
  EXPECT_EXIT(Q_get_table_row_pos_or_die(table, "b%s"), ExitedWithCode(1),
              "Row 'b%s' not found in the table\\.");
}

TEST(TextTable, SavesWhatItLoadedOrKeepsTheOldFile) {
  const Test_folder folder;
  const std::string content = "study\tn1\tage\t\nA_1\t20\t31.5\t\nB\t\tNA\t\n\t3\t\xc3\xa9%s\t\n";
  write_text("table 1%.txt", content);
  write_text("out2.txt", "old\n");
  Q_table table;
  Q_table_load(table, "%s %d%%.txt", "table", 1);
  Q_table_t(table);
  {
    const File_size_limit full_disk(content.size() - 1);
    EXPECT_FALSE(Q_table_save(table, "out2.txt"));
  }
  EXPECT_EQ(read_text("out2.txt"), "old\n");
  EXPECT_TRUE(Q_table_save(table, "%s%d.txt", "out", 2));
  EXPECT_EQ(read_text("out2.txt"), content);

  mkdir("folder", 0755);
  EXPECT_EXIT(Q_table_load(table, "%s.txt", "none"), ExitedWithCode(1),
              "File 'none\\.txt' not found\\.");
  EXPECT_EXIT(Q_table_load(table, "folder"), ExitedWithCode(1),
              "File '/.*/folder' is not a regular file\\.");
  EXPECT_EXIT((void)Q_table_save(table, "none/%s.txt", "x"), ExitedWithCode(1),
              "File 'none/x\\.txt' not writable\\.");
}

TEST(TextTable, LoadsVeryManyCells) {
  constexpr int COLUMNS = 30;
  constexpr int ROWS = 20034;  // 601,020 cells
  std::string content;
  for (int row = 0; row < ROWS; ++row) {
    for (int column = 0; column < COLUMNS; ++column)
      content += std::to_string((row * 31 + column * 7) % 100000) + "\t";
    content += '\n';
  }
  const std::clock_t start = std::clock();
  Q_table table = loaded(content);
  Q_table_t(table);
  const auto seconds = (std::clock() - start) / CLOCKS_PER_SEC;
  EXPECT_EQ(Q_table_nrow(table), COLUMNS);
  EXPECT_EQ(Q_table_ncol(table), ROWS);
  EXPECT_EQ(TABLE(table, 29, 20033), std::to_string((20033 * 31 + 29 * 7) % 100000));
  // Of the processor's time, and far above what it takes: only a change of its order fails.
  EXPECT_LT(seconds, 5);
  EXPECT_EQ(Q_table_text(table), content);
}

}  // namespace
