// The file of the study table: reading agrees with the loader of the suite, and writing keeps what
// the user has not changed.

#include "companions/kvo_edit/table_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <filesystem>
#include <random>

#include "companions/kvo_edit/operations.h"
#include "engine/base/refusal.h"
#include "test_folder.h"
#include "workspace/files/text_table.h"

using namespace kvo::edit;

namespace {

using testing::HasSubstr;

Document document_with(const std::string& content) {
  return document_of("kvo_table.txt", content);
}

/// Any content that readers may meet: few characters, so that they meet often.
std::string random_content(std::mt19937& random) {
  static constexpr std::string_view ALPHABET = "ab1\t\t  ,,\n\n\n\r\v\xff\xc3\xa9";
  std::string content(random() % 60, ' ');
  for (char& character : content) character = ALPHABET[random() % ALPHABET.size()];
  return content;
}

TEST(TableFile, ReadsWhatTheLoaderReads) {
  std::mt19937 random(1);
  for (int i = 0; i < 20000; ++i) {
    const std::string content = random_content(random);
    Q_table loaded;
    Q_table_load_text(loaded, content);
    if (Q_table_nrow(loaded) == 0) continue;
    const Table& table = document_with(content).table;
    ASSERT_EQ(row_count(table), Q_table_nrow(loaded) - 1) << testing::PrintToString(content);
    ASSERT_EQ(column_count(table), Q_table_ncol(loaded)) << testing::PrintToString(content);
    for (long row = HEADER; row < row_count(table); ++row)
      for (long column = 0; column < column_count(table); ++column)
        ASSERT_EQ(cell(table, row, column), TABLE(loaded, row + 1, column).value_or(""))
            << testing::PrintToString(content) << " row " << row << " column " << column;
  }
}

TEST(TableFile, WritesAnUnchangedTableByteForByte) {
  std::mt19937 random(2);
  for (int i = 0; i < 20000; ++i) {
    const std::string content = random_content(random);
    if (content.find_first_not_of("\t \n\r\v\xff") == std::string::npos) continue;
    ASSERT_EQ(document_text(document_with(content)), content) << testing::PrintToString(content);
  }
}

TEST(TableFile, StartsWithTheDefaultTable) {
  const Test_folder folder;
  write_text("empty.txt", "\n \n");
  for (const char* path : {"missing.txt", "empty.txt"}) {
    const Document document = open_document(path);
    EXPECT_EQ(document.table.header.cells, (std::vector<std::string>{"study", "n1"})) << path;
    EXPECT_EQ(row_count(document.table), 0) << path;
    EXPECT_FALSE(has_changes(document)) << path;
    EXPECT_EQ(document_text(document), "study\tn1\n") << path;
  }
}

using Step = void (*)(Document&);

TEST(TableFile, KeepsTheFormatOfTheFile) {
  const Step set_n1 = [](Document& d) { set_text(d, 0, 1, "99"); };
  const Step add_study = [](Document& d) {
    add_studies(d, row_count(d.table), 1);
    set_text(d, row_count(d.table) - 1, 0, "new");
  };
  const Step add_column = [](Document& d) { add_variable(d, column_count(d.table), "age"); };
  const Step remove_first = [](Document& d) { remove_studies(d, 0, 0); };
  const Step remove_last = [](Document& d) {
    remove_studies(d, row_count(d.table) - 1, row_count(d.table) - 1);
  };
  const Step swap = [](Document& d) { move_studies(d, 0, 0, true); };
  struct {
    const char* what;
    std::string before;
    Step step;
    std::string after;
  } const cases[] = {
      {"tabs", "study\tn1\na\t1\nb\t2\n", set_n1, "study\tn1\na\t99\nb\t2\n"},
      {"commas", "study,n1\na,1\nb,2\n", set_n1, "study,n1\na,99\nb,2\n"},
      {"blanks", "study n1\na 1\nb 2\n", set_n1, "study n1\na 99\nb 2\n"},
      {"other separators in other lines", "study,n1\na\t1\nb 2\n", set_n1, "study,n1\na,99\nb 2\n"},
      {"carriage returns", "study,n1\r\na,1\r\nb,2\r\n", add_study,
       "study,n1\r\na,1\r\nb,2\r\nnew,NA\r\n"},
      {"old carriage returns", "study,n1\ra,1\r", add_study, "study,n1\ra,1\rnew,NA\r"},
      {"no final line end", "study,n1\na,1", add_study, "study,n1\na,1\nnew,NA"},
      {"no final line end, last line moved", "study,n1\na,1\nb,2", swap, "study,n1\nb,2\na,1"},
      {"no final line end, last line removed", "study,n1\na,1\nb,2", remove_last, "study,n1\na,1"},
      {"only a header without line end", "study n1", add_study, "study n1\nnew NA"},
      {"tabs at the ends", "study\tn1\t\na\t1\t\n", add_study, "study\tn1\t\na\t1\t\nnew\tNA\t\n"},
      {"blank lines", "\nstudy,n1\n\na,1\n \nb,2\n\n", set_n1, "\nstudy,n1\n\na,99\n \nb,2\n\n"},
      {"blank lines at the end", "study,n1\na,1\n\n\n", add_study, "study,n1\na,1\nnew,NA\n\n\n"},
      {"a line moves with its blank lines", "study,n1\na,1\n\nb,2\n", swap,
       "study,n1\n\nb,2\na,1\n"},
      {"a removed line", "study,n1\na,1\nb,2\n", remove_first, "study,n1\nb,2\n"},
      {"short and long lines", "study,n1\na\nb,2,x y\n", add_column,
       "study,n1,age\na,NA,NA\nb,2,NA\n"},
      {"short and long lines that stay", "study,n1\nz,0\na\nb,2,x y\n", set_n1,
       "study,n1\nz,99\na\nb,2,x y\n"},
      {"a removed variable leaves nothing", "study,n1\na,1,x\nb,2\nc\n",
       [](Document& d) { remove_variables(d, 1, 1); }, "study\na\nb\nc\n"},
      {"a renamed variable leaves the other lines", "study,n1\na,1,x\nb\n",
       [](Document& d) { set_text(d, HEADER, 1, "n"); }, "study,n\na,1,x\nb\n"},
      {"one column", "study\na\n", add_column, "study\tage\na\tNA\n"},
      {"empty cells become NA where the line is written", "study,n1,n2\na,,\n", set_n1,
       "study,n1,n2\na,99,NA\n"},
      {"literal text", "study,n1\n%s%n<b>,1\n", set_n1, "study,n1\n%s%n<b>,99\n"},
  };
  for (const auto& c : cases) {
    Document document = document_with(c.before);
    c.step(document);
    const std::string after = document_text(document);
    EXPECT_EQ(after, c.after) << c.what;
    while (undo(document)) {
    }
    EXPECT_EQ(document_text(document), c.before) << c.what;
    while (redo(document)) {
    }
    EXPECT_EQ(document_text(document), c.after) << c.what;
  }
}

TEST(TableFile, SavesAndKnowsWhatHasChanged) {
  const Test_folder folder;
  write_text("t.txt", "study,n1\na,1\n");
  Document document = open_document("t.txt");
  EXPECT_FALSE(has_changes(document));
  set_text(document, 0, 1, "2");
  EXPECT_TRUE(has_changes(document));
  save_document(document);
  EXPECT_EQ(read_text("t.txt"), "study,n1\na,2\n");
  EXPECT_FALSE(has_changes(document));
  undo(document);
  EXPECT_TRUE(has_changes(document));
  redo(document);
  EXPECT_FALSE(has_changes(document));
  // The saved state is out of reach once history goes another way.
  undo(document);
  set_text(document, 0, 1, "3");
  EXPECT_TRUE(has_changes(document));
  undo(document);
  EXPECT_TRUE(has_changes(document));
}

TEST(TableFile, NoticesOtherWriters) {
  const Test_folder folder;
  const std::string content = "study,n1\na,1\n";
  struct {
    const char* what;
    void (*write)();
    bool changed;
  } const cases[] = {
      {"nothing", [] {}, false},
      {"same bytes", [] { write_text("t.txt", "study,n1\na,1\n"); }, false},
      {"other bytes of the same length", [] { write_text("t.txt", "study,n1\na,2\n"); }, true},
      {"removed", [] { std::filesystem::remove("t.txt"); }, true},
      {"a folder instead",
       [] {
         std::filesystem::remove("t.txt");
         std::filesystem::create_directory("t.txt");
       },
       true},
  };
  for (const auto& c : cases) {
    std::filesystem::remove("t.txt");
    write_text("t.txt", content);
    const Document document = open_document("t.txt");
    c.write();
    EXPECT_EQ(changed_on_disk(document), c.changed) << c.what;
  }
  std::filesystem::remove("t.txt");
  const Document missing = open_document("t.txt");
  EXPECT_FALSE(changed_on_disk(missing));
  write_text("t.txt", content);
  EXPECT_TRUE(changed_on_disk(missing));
}

TEST(TableFile, RefusesCellsThatTheFileCannotHold) {
  struct {
    long row, column;
    std::string text;
    std::string message;  ///< a part of it; empty when the table can be saved
  } const cases[] = {
      {0, 1, "1.5", ""},
      {0, 0, "M\xc3\xbcller2004", ""},
      {0, 0, "Smith 2004", "'Smith 2004' (the name of study 1) holds a blank"},
      {1, 1, "3,5", "'3,5' (the variable 'n1' of the study 'b') holds a comma"},
      {1, 1, "3\t5", "holds a tab"},
      {1, 1, "3\n5", "holds a line break"},
      {1, 1, "3\r5", "holds a line break"},
      {1, 1, "3\xff", "holds a byte that is not text"},
      {HEADER, 1, "n 1", "'n 1' (the name of variable 2) holds a blank"},
      {0, 1, std::string(50000, '1'), "Line 2 of the table would be longer than 49999 bytes"},
  };
  const Test_folder folder;
  const std::string content = "study\tn1\na\t1\nb\t2\n";
  for (const auto& c : cases) {
    write_text("t.txt", content);
    Document document = open_document("t.txt");
    set_text(document, c.row, c.column, c.text);
    std::string message;
    try {
      save_document(document);
    } catch (const Refusal& refusal) {
      message = refusal.what();
    }
    if (c.message.empty()) {
      EXPECT_EQ(message, "") << c.text;
      EXPECT_EQ(cell(open_document("t.txt").table, c.row, c.column), c.text);
      continue;
    }
    EXPECT_THAT(message, HasSubstr(c.message));
    EXPECT_EQ(read_text("t.txt"), content) << c.message;
    EXPECT_TRUE(has_changes(document)) << c.message;
  }
}

/// What the loader makes of cells that hold white space of other kinds cannot be written, but the
/// line that it comes from can.
TEST(TableFile, KeepsALineThatItCouldNotWrite) {
  Document document = document_with("study,n1\nx\vy,1\nb,2\n");
  set_text(document, 1, 1, "3");
  EXPECT_FALSE(first_unsavable(document));
  EXPECT_EQ(document_text(document), "study,n1\nx\vy,1\nb,3\n");
  set_text(document, 0, 1, "3");
  EXPECT_TRUE(first_unsavable(document));
}

TEST(TableFile, SaysWhyItCannotOpen) {
  const Test_folder folder;
  std::filesystem::create_directory("folder");
  ASSERT_EQ(mkfifo("pipe", 0600), 0);
  std::string wide(49998, ',');
  for (int row = 0; row < 100; ++row) wide += "\na";
  write_text("wide", wide);
  struct {
    const char* path;
    const char* message;
  } const cases[] = {
      {"folder", "'folder' is not a regular file."},
      {"pipe", "'pipe' is not a regular file."},
      {"wide", "'wide' has more than 5000000 cells."},
  };
  for (const auto& c : cases) {
    try {
      open_document(c.path);
      ADD_FAILURE() << c.path;
    } catch (const Refusal& refusal) {
      EXPECT_STREQ(refusal.what(), c.message);
    }
  }
}

TEST(TableFile, LeavesTheOldFileWhenTheDiskIsFull) {
  const Test_folder folder;
  const std::string content = "study,n1\na,1\n";
  write_text("t.txt", content);
  Document document = open_document("t.txt");
  set_text(document, 0, 1, std::string(5000, '7'));
  signal(SIGXFSZ, SIG_IGN);
  rlimit old{};
  getrlimit(RLIMIT_FSIZE, &old);
  const rlimit small{4096, old.rlim_max};
  setrlimit(RLIMIT_FSIZE, &small);
  EXPECT_THROW(save_document(document), Refusal);
  setrlimit(RLIMIT_FSIZE, &old);
  EXPECT_EQ(read_text("t.txt"), content);
  EXPECT_TRUE(has_changes(document));
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator("."), {}), 1);
  save_document(document);
  EXPECT_EQ(read_text("t.txt"), "study,n1\na," + std::string(5000, '7') + "\n");
}

}  // namespace
