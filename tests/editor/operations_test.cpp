// What the user can do to the table: the table that each operation leaves, and that undo and redo
// go back and forth to the byte.

#include "companions/kvo_edit/operations.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <random>

#include "companions/kvo_edit/table_file.h"
#include "engine/studies/study_rules.h"

using namespace kvo::edit;

namespace {

const std::string CONTENT =
    "study,n1,n2,age\n"
    "b,12,9,31.5\n"
    "A,NA,10,\n"
    "c,8,x,7\n";

Document example() {
  return document_of("kvo_table.txt", CONTENT);
}

/// The table with blanks between cells and "|" between rows, empty cells as "-".
std::string shown(const Table& table) {
  std::string text;
  for (long row = HEADER; row < row_count(table); ++row) {
    if (row != HEADER) text += '|';
    for (long column = 0; column < column_count(table); ++column) {
      const std::string& content = cell(table, row, column);
      text += (column > 0 ? " " : "") + (content.empty() ? "-" : content);
    }
  }
  return text;
}

TEST(Operations, ChangeTheTableAndCanBeTakenBack) {
  struct {
    const char* what;
    std::function<void(Document&)> operation;
    std::string after;
  } const cases[] = {
      {"a cell", [](Document& d) { set_text(d, 0, 1, "13"); },
       "study n1 n2 age|b 13 9 31.5|A NA 10 -|c 8 x 7"},
      {"a name", [](Document& d) { set_text(d, HEADER, 3, "years"); },
       "study n1 n2 years|b 12 9 31.5|A NA 10 -|c 8 x 7"},
      {"clearing",
       [](Document& d) {
         clear_cells(d, {0, 1, 1, 2});
       },
       "study n1 n2 age|b - - 31.5|A NA - -|c 8 x 7"},
      {"a study in the middle", [](Document& d) { add_studies(d, 1, 1); },
       "study n1 n2 age|b 12 9 31.5|NA NA NA NA|A NA 10 -|c 8 x 7"},
      {"two studies at the end", [](Document& d) { add_studies(d, 3, 2); },
       "study n1 n2 age|b 12 9 31.5|A NA 10 -|c 8 x 7|NA NA NA NA|NA NA NA NA"},
      {"a variable at the front", [](Document& d) { add_variable(d, 0, "id"); },
       "id study n1 n2 age|NA b 12 9 31.5|NA A NA 10 -|NA c 8 x 7"},
      {"a variable at the end", [](Document& d) { add_variable(d, 4, "iq"); },
       "study n1 n2 age iq|b 12 9 31.5 NA|A NA 10 - NA|c 8 x 7 NA"},
      {"removing studies", [](Document& d) { remove_studies(d, 0, 1); }, "study n1 n2 age|c 8 x 7"},
      {"removing all studies", [](Document& d) { remove_studies(d, 0, 2); }, "study n1 n2 age"},
      {"removing variables", [](Document& d) { EXPECT_TRUE(remove_variables(d, 1, 2)); },
       "study age|b 31.5|A -|c 7"},
      {"studies down", [](Document& d) { EXPECT_TRUE(move_studies(d, 0, 1, true)); },
       "study n1 n2 age|c 8 x 7|b 12 9 31.5|A NA 10 -"},
      {"a study up", [](Document& d) { EXPECT_TRUE(move_studies(d, 2, 2, false)); },
       "study n1 n2 age|b 12 9 31.5|c 8 x 7|A NA 10 -"},
      {"a variable to the right", [](Document& d) { EXPECT_TRUE(move_variables(d, 1, 1, true)); },
       "study n2 n1 age|b 9 12 31.5|A 10 NA -|c x 8 7"},
      {"variables to the left", [](Document& d) { EXPECT_TRUE(move_variables(d, 2, 3, false)); },
       "study n2 age n1|b 9 31.5 12|A 10 - NA|c x 7 8"},
      {"a variable dragged to the end", [](Document& d) { place_variable(d, 0, 3); },
       "n1 n2 age study|12 9 31.5 b|NA 10 - A|8 x 7 c"},
      {"a variable dragged to the front", [](Document& d) { place_variable(d, 3, 0); },
       "age study n1 n2|31.5 b 12 9|- A NA 10|7 c 8 x"},
      {"sorting names", [](Document& d) { sort_studies(d, 0, false); },
       "study n1 n2 age|A NA 10 -|b 12 9 31.5|c 8 x 7"},
      {"sorting names down", [](Document& d) { sort_studies(d, 0, true); },
       "study n1 n2 age|c 8 x 7|b 12 9 31.5|A NA 10 -"},
      {"sorting numbers", [](Document& d) { sort_studies(d, 1, false); },
       "study n1 n2 age|c 8 x 7|b 12 9 31.5|A NA 10 -"},
      {"sorting numbers down, missing last", [](Document& d) { sort_studies(d, 3, true); },
       "study n1 n2 age|b 12 9 31.5|c 8 x 7|A NA 10 -"},
      {"sorting numbers before texts", [](Document& d) { sort_studies(d, 2, true); },
       "study n1 n2 age|c 8 x 7|A NA 10 -|b 12 9 31.5"},
      {"mending separators",
       [](Document& d) {
         set_text(d, 0, 0, "b 1,2\tx");
         replace_separators(d, {0, 0, 2, 3}, true);
       },
       "study n1 n2 age|b_1_2_x 12 9 31.5|A NA 10 -|c 8 x 7"},
  };
  for (const auto& c : cases) {
    Document document = example();
    c.operation(document);
    EXPECT_EQ(shown(document.table), c.after) << c.what;
    EXPECT_TRUE(has_changes(document)) << c.what;
    while (undo(document)) {
    }
    EXPECT_EQ(document_text(document), CONTENT) << c.what;
    EXPECT_FALSE(has_changes(document)) << c.what;
    while (redo(document)) {
    }
    EXPECT_EQ(shown(document.table), c.after) << c.what;
  }
}

TEST(Operations, ThatChangeNothingLeaveNoStep) {
  const std::function<void(Document&)> cases[] = {
      [](Document& d) { set_text(d, 0, 1, "12"); },
      [](Document& d) { set_text(d, 1, 1, ""); },    // NA
      [](Document& d) { set_text(d, 1, 3, "NA"); },  // empty
      [](Document& d) {
        clear_cells(d, {1, 1, 1, 1});
      },
      [](Document& d) {
        replace_separators(d, {0, 0, 2, 3}, true);
      },
      [](Document& d) { EXPECT_FALSE(remove_variables(d, 0, 3)); },
      [](Document& d) { EXPECT_FALSE(move_studies(d, 1, 2, true)); },
      [](Document& d) { EXPECT_FALSE(move_studies(d, 0, 2, false)); },
      [](Document& d) { EXPECT_FALSE(move_variables(d, 3, 3, true)); },
      [](Document& d) { EXPECT_FALSE(move_variables(d, 0, 1, false)); },
      [](Document& d) { place_variable(d, 2, 2); },
      [](Document& d) {
        paste_block(d, {0, 0, 0, 0}, {{"b", "12"}}, false);
      },
      [](Document& d) {
        paste_block(d, {0, 0, 0, 0}, {}, false);
      },
  };
  for (const auto& operation : cases) {
    Document document = example();
    operation(document);
    EXPECT_TRUE(document.undo_steps.empty()) << "case " << &operation - cases;
  }
}

TEST(Operations, PasteBlocks) {
  struct {
    const char* what;
    Cell_range at;
    Block block;
    bool names;
    std::string after;
    Cell_range taken;
  } const cases[] = {
      {"inside",
       {0, 1, 0, 1},
       {{"1", "2"}, {"3", "4"}},
       false,
       "study n1 n2 age|b 1 2 31.5|A 3 4 -|c 8 x 7",
       {0, 1, 1, 2}},
      {"short rows clear the rest",
       {0, 1, 0, 1},
       {{"1", "2", "3"}, {"4"}},
       false,
       "study n1 n2 age|b 1 2 3|A 4 - -|c 8 x 7",
       {0, 1, 1, 3}},
      {"one cell fills the selection",
       {0, 1, 2, 2},
       {{"5"}},
       false,
       "study n1 n2 age|b 5 5 31.5|A 5 5 -|c 5 5 7",
       {0, 1, 2, 2}},
      {"below",
       {2, 0, 2, 0},
       {{"d", "1"}, {"e", "2"}, {"f", ""}},
       false,
       "study n1 n2 age|b 12 9 31.5|A NA 10 -|d 1 x 7|e 2 NA NA|f NA NA NA",
       {2, 0, 4, 1}},
      {"to the right",
       {1, 3, 1, 3},
       {{"20", "1"}, {"21", "0"}},
       false,
       "study n1 n2 age variable1|b 12 9 31.5 NA|A NA 10 20 1|c 8 x 21 0",
       {1, 3, 2, 4}},
      {"both",
       {2, 3, 2, 3},
       {{"1", "2", "3"}, {"4", "5", "6"}},
       false,
       "study n1 n2 age variable1 variable2|b 12 9 31.5 NA NA|A NA 10 - NA NA|c 8 x 1 2 3|NA NA NA "
       "4 5 6",
       {2, 3, 3, 5}},
      {"with names",
       {0, 3, 0, 3},
       {{"age", "iq"}, {"30", "100"}},
       true,
       "study n1 n2 age iq|b 12 9 30 100|A NA 10 - NA|c 8 x 7 NA",
       {0, 3, 0, 4}},
      {"only names",
       {0, 1, 0, 1},
       {{"m1", "m2"}},
       true,
       "study m1 m2 age|b 12 9 31.5|A NA 10 -|c 8 x 7",
       {0, 1, -1, 2}},
  };
  for (const auto& c : cases) {
    Document document = example();
    EXPECT_EQ(paste_block(document, c.at, c.block, c.names), c.taken) << c.what;
    EXPECT_EQ(shown(document.table), c.after) << c.what;
    EXPECT_EQ(document.undo_steps.size(), 1U) << c.what;
    undo(document);
    EXPECT_EQ(document_text(document), CONTENT) << c.what;
    redo(document);
    EXPECT_EQ(shown(document.table), c.after) << c.what;
  }
}

TEST(Operations, PasteIntoTheDefaultTable) {
  Document document = document_of("kvo_table.txt", std::nullopt);
  paste_block(document, {0, 0, 0, 0},
              parse_block("study\tn1\tage\nSmith2004\t12\t31.5\nJones2010\t15\t\n"), true);
  EXPECT_EQ(document_text(document), "study\tn1\tage\nSmith2004\t12\t31.5\nJones2010\t15\tNA\n");
}

TEST(Operations, CopyWhatIsShown) {
  const Document document = example();
  EXPECT_EQ(format_block(copy_cells(document, {0, 2, 1, 3}, false)), "9\t31.5\n10\tNA\n");
  EXPECT_EQ(format_block(copy_cells(document, {1, 0, 1, 1}, true)), "study\tn1\nA\tNA\n");
}

/// The table with all missing values alike, as the front end reads it.
std::string meaning(Table table) {
  for (long row = HEADER; row < row_count(table); ++row)
    for (std::string& text : table_row(table, row).cells)
      if (is_missing(text)) text = "NA";
  return shown(table);
}

/// A user who does anything in any order, goes back to the beginning, forth to the end, and reads
/// the saved file.
TEST(Operations, InAnyOrderCanBeTakenBack) {
  std::mt19937 random(3);
  const std::string contents[] = {
      CONTENT,
      "study n1\n\na\nb 1 more text\nc \n d",
      "study\tn1\t\r\na\t\t\r\n\r\n\tNA\t\r\n \r\n",
      "study\na\nb\n",
  };
  for (int run = 0; run < 1200; ++run) {
    Document document = document_of("kvo_table.txt", contents[random() % std::size(contents)]);
    std::vector<std::string> states{document_text(document)};
    for (int i = 0; i < 25; ++i) {
      const long rows = row_count(document.table);
      const long columns = column_count(document.table);
      const auto below = [&random](long limit) {
        return static_cast<long>(random() % std::max(limit, 1L));
      };
      const long row = below(rows);
      const long column = below(columns);
      const std::size_t steps = document.undo_steps.size();
      switch (rows == 0 ? 1 : random() % 10) {
        case 0:
          set_text(document, row - below(2), column, std::to_string(random() % 5));
          break;
        case 1:
          add_studies(document, below(rows + 1), 1 + below(2));
          break;
        case 2:
          add_variable(document, below(columns + 1), new_variable_name(document.table));
          break;
        case 3:
          remove_studies(document, row, row + below(rows - row));
          break;
        case 4:
          remove_variables(document, column, column + below(columns - column));
          break;
        case 5:
          move_studies(document, row, row, random() % 2 == 0);
          break;
        case 6:
          move_variables(document, column, column, random() % 2 == 0);
          break;
        case 7:
          sort_studies(document, column, random() % 2 == 0);
          break;
        case 8:
          place_variable(document, column, below(columns));
          break;
        default:
          paste_block(document, {row, column, row, column}, {{"p", "q"}, {"r", ""}},
                      random() % 2 == 0);
      }
      if (document.undo_steps.size() != steps) states.push_back(document_text(document));
    }
    ASSERT_EQ(states.size(), document.undo_steps.size() + 1);
    ASSERT_FALSE(first_unsavable(document));
    ASSERT_EQ(meaning(document_of("t", states.back()).table), meaning(document.table))
        << testing::PrintToString(states.back());
    for (auto state = states.rbegin() + 1; state != states.rend(); ++state) {
      undo(document);
      ASSERT_EQ(document_text(document), *state) << "run " << run;
    }
    for (auto state = states.begin() + 1; state != states.end(); ++state) {
      redo(document);
      ASSERT_EQ(document_text(document), *state) << "run " << run;
    }
  }
}

TEST(Operations, NameNewVariables) {
  Document document = example();
  for (const char* name : {"variable1", "variable2", "variable3"}) {
    EXPECT_EQ(new_variable_name(document.table), name);
    add_variable(document, 1, name);
  }
}

}  // namespace
