// Text tables: what each kind of line becomes, the operations' checks, and files written back.

#include "workspace/files/text_table.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <ctime>

#include "file_size_limit.h"
#include "test_folder.h"
#include "util/q_string.h"

namespace {

using testing::ElementsAreArray;
using testing::ExitedWithCode;
using testing::HasSubstr;

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
  struct {
    std::string content;
    Rows rows;
  } const cases[] = {
      {"", {}},
      {"\n \t \n\r\n", {}},
      {"a b,c", {{"a", "b", "c"}}},
      {"a, b\n", {{"a", "", "b"}}},
      {"a\tb\n1\t\t2\n", {{"a", "b"}, {"1", ""}}},
      {"a\tb\tc\n1\t\t2\n", {{"a", "b", "c"}, {"1", "", "2"}}},
      {"a b\n x\n\ty\n,z\n", {{"a", "b"}, {"", "x"}, {"", "y"}, {"", "z"}}},
      {"a\tb\n1\t2\t3 4,5\n", {{"a", "b"}, {"1", "2"}}},
      {"a b c\n1\n1 2\n", {{"a", "b", "c"}, {"1", ABSENT, ABSENT}, {"1", "2", ABSENT}}},
      {"a b\n1,\n", {{"a", "b"}, {"1", ""}}},
      {"a,b,\n1,2,3", {{"a", "b", ""}, {"1", "2", "3"}}},
      {"a\tb\t\n1\t2\t\t \n", {{"a", "b"}, {"1", "2"}}},
      {"\n\na b\n\n \n1 2\n\n", {{"a", "b"}, {"1", "2"}}},
      {"a b\r\n1 2\r\n\r\n3 4\r\n", {{"a", "b"}, {"1", "2"}, {"3", "4"}}},
      {"a b\r1 2", {{"a", "b"}, {"1", "2"}}},
      {"a b\n1 2\xff"
       "3 4\n",
       {{"a", "b"}, {"1", "2"}, {"3", "4"}}},
      {"a b\n%s%n 100%\n", {{"a", "b"}, {"%s%n", "100%"}}},
      {"a\tb\n\vx\v\f\vy\v\tz\f\n", {{"a", "b"}, {"x y", "z"}}},
      {"\xc3\xa9tude n1\n\"M\xc3\xbcller 1\"\n",
       {{"\xc3\xa9tude", "n1"}, {"\"M\xc3\xbcller", "1\""}}},
  };
  for (const auto& c : cases)
    EXPECT_EQ(rows_of(loaded(c.content)), c.rows) << testing::PrintToString(c.content);
}

TEST(TextTable, CutsLinesAtTheLongestText) {
  const std::string cell(Q_STRING_MAX, 'x');
  EXPECT_EQ(rows_of(loaded("a b\n" + cell + "yz 1\n")),
            (Rows{{"a", "b"}, {cell, ABSENT}, {"yz", "1"}}));
}

TEST(TextTable, TellsWhatLoadingLoses) {
  const std::string full(Q_STRING_MAX, 'x');
  const std::string separators = " (each blank, tab or comma begins a new cell)";
  const struct {
    std::string content;
    std::string loss;
  } cases[] = {
      {"", ""},
      {"a,b\n1\n\n1,2\n1\t2\t\n1 2,,\n" + full, ""},
      {"\n\na,age\r\n1,2\r\n1,31,5\r\n",
       "line 5: there are 3 cells, but the header has 2 columns" + separators},
      {"a\r1\r1,,2", "line 3: there are 3 cells, but the header has 1 column" + separators},
      {"a b\n" + full + "x\n", "line 2: it has more than 49999 characters"},
      {"a b\n1\xff"
       "2\n",
       "line 2: it has a byte of value 255"},
  };
  for (const auto& c : cases)
    EXPECT_EQ(Q_table_loss(c.content).value_or(""), c.loss) << c.content.substr(0, 50);
}

TEST(TextTable, SplitsLines) {
  const struct {
    const char* line;
    std::vector<std::string> cells;
  } cases[] = {{"", {}},
               {" \t ", {}},
               {"a", {"a"}},
               {" a,,b\vc\t d,\t ", {"", "a", "", "b c", "", "d", ""}},
               {",", {"", ""}}};
  for (const auto& c : cases) EXPECT_EQ(Q_table_split_line(c.line), c.cells) << c.line;
}

TEST(TextTable, AppendsWithoutHeaderToATableThatHasRows) {
  Q_table table = loaded("a b\n1 2\n");
  Q_table_load_text(table, "c d e\n\n3\n");
  EXPECT_EQ(rows_of(table), (Rows{{"a", "b"}, {"1", "2"}, {"c", "d"}, {"3", ABSENT}}));
}

TEST(TextTable, TakesAZeroRowCountForAnEmptyTable) {
  Q_table table{"0"};
  Q_table_load_text(table, "a b\n1 2\n");
  EXPECT_EQ(rows_of(table), (Rows{{"a", "b"}, {"1", "2"}}));
}

TEST(TextTable, KeepsDimensionsAsTextsBeforeTheCells) {
  EXPECT_THAT(loaded("a b\n1 2\n3\n"),
              ElementsAreArray(std::vector<Q_cell>{"3", "2", "a", "b", "1", "2", "3", ABSENT}));
}

TEST(TextTable, Transposes) {
  struct {
    Rows before, after;
  } const cases[] = {
      {{{"a", "b", "c"}, {"1", ABSENT, ""}}, {{"a", "1"}, {"b", ABSENT}, {"c", ""}}},
      {{{"a", "b"}, {"c", "d"}}, {{"a", "c"}, {"b", "d"}}},
      {{{"a"}}, {{"a"}}},
      {{{"a"}, {"b"}}, {{"a", "b"}}},
  };
  for (const auto& c : cases) {
    Q_table table = table_of(c.before);
    Q_table_t(table);
    EXPECT_EQ(rows_of(table), c.after) << testing::PrintToString(c.before);
    Q_table_t(table);
    EXPECT_EQ(rows_of(table), c.before);
  }
  Q_table empty;
  Q_table_t(empty);
  EXPECT_EQ(Q_table_nrow(empty), 0);
  EXPECT_EQ(Q_table_ncol(empty), 0);
}

TEST(TextTable, WritesTransposedWithATabBehindEachCell) {
  struct {
    Rows rows;
    std::string text;
  } const cases[] = {
      {{{"a", "1"}, {"b", "2"}, {"c", "3"}}, "a\tb\tc\t\n1\t2\t3\t\n"},
      {{{"a", "1"}, {"b", ABSENT}, {"c", ""}}, "a\tb\tc\t\n1\tNA\t\t\n"},
      {{{"%d", "%n"}}, "%d\t\n%n\t\n"},
  };
  for (const auto& c : cases)
    EXPECT_EQ(Q_table_text(table_of(c.rows)), c.text) << testing::PrintToString(c.rows);
  EXPECT_EQ(Q_table_text({}), "");
}

TEST(TextTable, SavesWhatItLoadedByteForByte) {
  const Test_folder folder;
  const std::string content = "study\tn1\tage\t\nA_1\t20\t31.5\t\nB\t\tNA\t\n\t3\t\xc3\xa9%s\t\n";
  write_text("table 1%.txt", content);
  Q_table table;
  Q_table_load(table, "%s %d%%.txt", "table", 1);
  Q_table_t(table);
  ASSERT_TRUE(Q_table_save(table, "%s%d.txt", "out", 2));
  EXPECT_EQ(read_text("out2.txt"), content);
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
  table[0] = "9";
  Q_table_set(table, 7, 0, "z");
  EXPECT_EQ(TABLE(table, 6, 1), ABSENT);
  EXPECT_EQ(TABLE(table, 7, 0), "z");
  EXPECT_EQ(TABLE(table, 8, 1), ABSENT);
  Q_table_remove_row(table, 8);
  Q_table_remove_row(table, 7);
  EXPECT_EQ(TABLE(table, 6, 0), ABSENT);

  Q_table none;
  Q_table_increase_nrow(none);
  EXPECT_EQ(none.at(0), "1");
  Q_table_remove_row(none, 0);
  EXPECT_EQ(none.at(0), "0");
}

TEST(TextTable, FindsRowsByTheirFirstCell) {
  const Q_table table = table_of({{"a", "x"}, {ABSENT, "y"}, {"b", "z"}, {"a", "w"}});
  const struct {
    const char* name;
    long row;
  } cases[] = {{"a", 0}, {"b", 2}, {"A", -1}, {"y", -1}, {"", -1}, {"a ", -1}};
  for (const auto& c : cases) EXPECT_EQ(Q_get_table_row_pos(table, c.name), c.row) << c.name;
  EXPECT_EQ(Q_get_table_row_pos_or_die(table, "b"), 2);
  EXPECT_EQ(Q_get_table_row_pos({}, "a"), -1);
}

TEST(TextTableDeathTest, ChecksEveryAccess) {
  const Q_table table = table_of({{"a", "b"}});
  const struct {
    const char* name;
    Q_table table;
    long row, column;
    const char* message;
  } cases[] = {
      {"empty", {}, 0, 0, "Table does not have this row\\."},
      {"row count absent", {ABSENT, "1", "a"}, 0, 0, "this row"},
      {"row count zero", {"0", "1", "a"}, 0, 0, "this row"},
      {"negative row", table, -1, 0, "this row"},
      {"row too high", table, 1, 0, "this row"},
      {"both wrong", table, 1, 2, "this row"},
      {"column count absent", {"1"}, 0, 0, "Table does not have this column\\."},
      {"negative column", table, 0, -1, "this column"},
      {"column too high", table, 0, 2, "this column"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EXIT(TABLE(c.table, c.row, c.column), ExitedWithCode(1), c.message);
    Q_table copy = c.table;
    EXPECT_EXIT(Q_table_set(copy, c.row, c.column, "x"), ExitedWithCode(1), c.message);
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

TEST(TextTableDeathTest, EndsTheProgramForFilesThatCannotBeUsed) {
  const Test_folder folder;
  mkdir("folder", 0755);
  Q_table table = table_of({{"a"}});
  EXPECT_EXIT(Q_table_load(table, "%s.txt", "none"), ExitedWithCode(1),
              "File 'none\\.txt' not found\\.");
  EXPECT_EXIT(Q_table_load(table, "folder"), ExitedWithCode(1),
              "File '/.*/folder' is not a regular file\\.");
  EXPECT_EXIT((void)Q_table_save(table, "none/%s.txt", "x"), ExitedWithCode(1),
              "File 'none/x\\.txt' not writable\\.");
  EXPECT_EXIT((void)Q_table_save(table, "folder"), ExitedWithCode(1), "File 'folder' not writable");
}

TEST(TextTable, KeepsTheOldFileWhereverTheDiskIsFull) {
  const Test_folder folder;
  const Q_table table = table_of({{"study", "A", "B"}, {"n1", "20", "30"}});
  const std::string text = Q_table_text(table);
  write_text("table.txt", "old\n");
  for (rlim_t room = 0; room <= text.size(); ++room) {
    bool saved = false;
    {
      const File_size_limit limit(room);
      saved = Q_table_save(table, "table.txt");
    }
    EXPECT_EQ(saved, room == text.size()) << room;
    EXPECT_EQ(read_text("table.txt"), saved ? text : "old\n") << room;
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator("."), {}), 1) << room;
  }
}

TEST(TextTable, LoadsMillionsOfCells) {
  constexpr int COLUMNS = 30;
  constexpr int ROWS = 100034;  // 3,001,020 cells
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
  EXPECT_EQ(TABLE(table, 29, 100033), std::to_string((100033 * 31 + 29 * 7) % 100000));
  // Of the processor's time, and far above what it takes: only a change of its order fails.
  EXPECT_LT(seconds, 20);
  EXPECT_EQ(Q_table_text(table), content);
}

}  // namespace
