// What the user can do to the table: the file that it leaves, and that undo and redo go back and
// forth to the byte. edits.tsv has the cases.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <sstream>

#include "companions/kvo_edit/operations.h"
#include "companions/kvo_edit/table_file.h"
#include "engine/studies/study_rules.h"
#include "table.h"
#include "workspace/files/text_table.h"

using namespace kvo::edit;

namespace {

const std::string usual = "study,n1,n2,age\nb,12,9,31.5\nA,NA,10,\nc,8,x,7\n";

/// Does what a step of a table says: a verb, its numbers, and a text. What a paste has taken.
std::optional<Cell_range> perform(Document& d, const std::string& step) {
  std::istringstream words(step);
  std::string verb;
  words >> verb;
  static const std::map<std::string, int> verbs = {{"set", 2},
                                                   {"clear", 4},
                                                   {"separators", 4},
                                                   {"add_studies", 2},
                                                   {"add_variable", 1},
                                                   {"remove_studies", 2},
                                                   {"remove_variables", 2},
                                                   {"studies_down", 2},
                                                   {"studies_up", 2},
                                                   {"variables_right", 2},
                                                   {"variables_left", 2},
                                                   {"place", 2},
                                                   {"sort", 1},
                                                   {"sort_down", 1},
                                                   {"paste", 4},
                                                   {"paste_names", 4}};
  std::array<long, 4> n{};
  for (int i = 0; i < verbs.at(verb); ++i) words >> n[static_cast<std::size_t>(i)];
  words.get();
  std::string text;
  std::getline(words, text, '\0');
  const auto [a, b, c, e] = n;
  const std::size_t steps = d.undo_steps.size();
  std::optional<bool> done;
  if (verb == "set") set_text(d, a, b, text);
  if (verb == "clear") clear_cells(d, {a, b, c, e});
  if (verb == "separators") replace_separators(d, {a, b, c, e}, true);
  if (verb == "add_studies") add_studies(d, a, b);
  if (verb == "add_variable") add_variable(d, a, text);
  if (verb == "remove_studies") remove_studies(d, a, b);
  if (verb == "remove_variables") done = remove_variables(d, a, b);
  if (verb.starts_with("studies_")) done = move_studies(d, a, b, verb == "studies_down");
  if (verb.starts_with("variables_")) done = move_variables(d, a, b, verb == "variables_right");
  if (verb == "place") place_variable(d, a, b);
  if (verb.starts_with("sort")) sort_studies(d, a, verb == "sort_down");
  EXPECT_EQ(done.value_or(d.undo_steps.size() > steps), d.undo_steps.size() > steps);
  if (!verb.starts_with("paste")) return std::nullopt;
  return paste_block(d, {a, b, c, e}, parse_block(text), verb == "paste_names");
}

TEST(Edits, ChangeTheTableAndCanBeTakenBack) {
  for (const Cells& row : read_table(KVO_EDITS, 5)) {
    SCOPED_TRACE(row[0]);
    const std::string before = row[1].empty() ? usual : row[1];
    Document document = document_of("kvo_table.txt", before);
    const std::string unchanged = document_text(document);
    std::optional<Cell_range> taken;
    for (const std::string& step : split(row[2], " ; ", 9)) taken = perform(document, step);
    EXPECT_EQ(has_changes(document), !row[3].empty());
    EXPECT_EQ(document_text(document), row[3].empty() ? unchanged : row[3]);
    if (std::istringstream cells(row[4]); !row[4].empty()) {
      Cell_range range{};
      cells >> range.first_row >> range.first_column >> range.last_row >> range.last_column;
      EXPECT_EQ(taken, range);
    }
    while (undo(document)) continue;
    EXPECT_EQ(document_text(document), unchanged);
    EXPECT_FALSE(has_changes(document));
    while (redo(document)) continue;
    EXPECT_EQ(document_text(document), row[3].empty() ? unchanged : row[3]);
    EXPECT_FALSE(first_unsavable(document) && row[0] != "a line that could not be written");
  }
}

/// The cells, with all missing values alike, as the front end reads them.
std::vector<std::vector<std::string>> meaning(Table table) {
  std::vector<std::vector<std::string>> rows;
  for (long row = HEADER; row < row_count(table); ++row) {
    rows.push_back(table_row(table, row).cells);
    for (std::string& text : rows.back())
      if (is_missing(text)) text = "NA";
  }
  return rows;
}

/// A user who does anything in any order, goes back to the beginning, forth to the end, and reads
/// the saved file.
TEST(Edits, InAnyOrderCanBeTakenBack) {
  std::mt19937 random(3);
  const std::string contents[] = {
      usual,
      "study n1\n\na\nb 1 more text\nc \n d",
      "study\tn1\t\r\na\t\t\r\n\r\n\tNA\t\r\n \r\n",
      "study\na\nb\n",
  };
  for (int run = 0; run < 1200; ++run) {
    Document document = document_of("kvo_table.txt", contents[random() % std::size(contents)]);
    std::vector<std::string> states{document_text(document)};
    for (int i = 0; i < 25; ++i) {
      const auto below = [&random](long limit) {
        return static_cast<long>(random() % static_cast<unsigned>(std::max(limit, 1L)));
      };
      const long rows = row_count(document.table), columns = column_count(document.table);
      const long row = below(rows), column = below(columns);
      const auto range = [&](const std::string& verb, long from, long to) {
        return verb + " " + std::to_string(from) + " " + std::to_string(to);
      };
      const std::string one = range("", row, row), cell = range("", row, column);
      const std::string steps[] = {
          range("add_studies", below(rows + 1), 1 + below(2)),
          range("set", row - below(2), column) + " " + std::to_string(below(5)),
          "add_variable " + std::to_string(below(columns + 1)) + " " +
              new_variable_name(document.table),
          range("remove_studies", row, row + below(rows - row)),
          range("remove_variables", column, column + below(columns - column)),
          "studies_down" + one,
          "studies_up" + one,
          range("variables_right", column, column),
          range("variables_left", column, column),
          "sort" + range("", column, 0),
          "sort_down" + range("", column, 0),
          range("place", column, below(columns)),
          "paste" + cell + cell + " p\tq\nr\t\n",
          "paste_names" + cell + cell + " p\tq\nr\t\n"};
      const std::size_t before = document.undo_steps.size();
      perform(document, steps[rows == 0 ? 0 : random() % std::size(steps)]);
      if (document.undo_steps.size() != before) states.push_back(document_text(document));
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

/// Any content that readers may meet, of few characters, so that they meet often: read as the
/// loader of the suite reads it, and written byte for byte.
TEST(Edits, BeginWithWhatTheLoaderReads) {
  constexpr std::string_view ALPHABET = "ab1\t\t  ,,\n\n\n\r\v\xff\xc3\xa9";
  std::mt19937 random(1);
  for (int i = 0; i < 20000; ++i) {
    std::string content(random() % 60, ' ');
    for (char& character : content) character = ALPHABET[random() % ALPHABET.size()];
    SCOPED_TRACE(testing::PrintToString(content));
    Q_table loaded;
    Q_table_load_text(loaded, content);
    if (Q_table_nrow(loaded) == 0) continue;
    const Document document = document_of("kvo_table.txt", content);
    const Table& table = document.table;
    ASSERT_EQ(document_text(document), content);
    ASSERT_EQ(row_count(table), Q_table_nrow(loaded) - 1);
    ASSERT_EQ(column_count(table), Q_table_ncol(loaded));
    for (long row = HEADER; row < row_count(table); ++row)
      for (long column = 0; column < column_count(table); ++column)
        ASSERT_EQ(cell(table, row, column), TABLE(loaded, row + 1, column).value_or(""))
            << " row " << row << " column " << column;
  }
}

TEST(Edits, CopyWhatIsShown) {
  const Document document = document_of("kvo_table.txt", usual);
  EXPECT_EQ(format_block(copy_cells(document, {0, 2, 1, 3}, false)), "9\t31.5\n10\tNA\n");
  EXPECT_EQ(format_block(copy_cells(document, {1, 0, 1, 1}, true)), "study\tn1\nA\tNA\n");
}

}  // namespace
