// The file of the study table: when it has changed, what it can hold, and why it cannot be opened
// or written.

#include "companions/kvo_edit/table_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "companions/kvo_edit/operations.h"
#include "engine/base/refusal.h"
#include "file_size_limit.h"
#include "test_folder.h"

using namespace kvo::edit;

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

/// What the work is refused for; empty when it is not.
std::string refusal_of(const std::function<void()>& work) {
  try {
    work();
  } catch (const Refusal& refusal) {
    return refusal.what();
  }
  return "";
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
    std::optional<std::string> before, after;  ///< nothing when there is no file
    bool changed;
  } const cases[] = {
      {content, content, false},     {content, "study,n1\na,2\n", true},
      {content, std::nullopt, true}, {std::nullopt, std::nullopt, false},
      {std::nullopt, content, true},
  };
  for (const auto& [before, after, changed] : cases) {
    fs::remove("t.txt");
    if (before) write_text("t.txt", *before);
    const Document document = open_document("t.txt");
    fs::remove("t.txt");
    if (after) write_text("t.txt", *after);
    EXPECT_EQ(changed_on_disk(document), changed) << before.value_or("-") << after.value_or("-");
  }
  const Document document = open_document("t.txt");
  fs::remove("t.txt");
  fs::create_directory("t.txt");
  EXPECT_TRUE(changed_on_disk(document));
}

TEST(TableFile, RefusesCellsThatItCannotHold) {
  struct {
    long row, column;
    std::string text, message;  ///< a part of it; empty when the table can be saved
  } const cases[] = {
      {0, 0, "M\xc3\xbcller2004", ""},
      {0, 0, "Smith 2004", "'Smith 2004' (the name of study 1) holds a blank"},
      {1, 1, "3,5", "'3,5' (the variable 'n1' of the study 'b') holds a comma"},
      {1, 1, "3\t5", "holds a tab"},
      {1, 1, "3\n5", "holds a line break"},
      {1, 1, "3\xff", "holds a byte that is not text"},
      {HEADER, 1, "n 1", "'n 1' (the name of variable 2) holds a blank"},
      {0, 1, std::string(50000, '1'), "Line 2 of the table would be longer than 49999 bytes"},
      // Its line can stay as it is, but not be written anew.
      {2, 1, "2", "holds a blank"},
  };
  const Test_folder folder;
  const std::string content = "study\tn1\na\t1\nb\t2\nx\vy\t3\n";
  for (const auto& c : cases) {
    write_text("t.txt", content);
    Document document = open_document("t.txt");
    set_text(document, c.row, c.column, c.text);
    EXPECT_THAT(refusal_of([&] { save_document(document); }), HasSubstr(c.message));
    EXPECT_EQ(has_changes(document), !c.message.empty()) << c.text;
    if (c.message.empty())
      EXPECT_EQ(cell(open_document("t.txt").table, c.row, c.column), c.text);
    else
      EXPECT_EQ(read_text("t.txt"), content) << c.message;
  }
}

TEST(TableFile, SaysWhyItCannotBeOpened) {
  const Test_folder folder;
  ASSERT_EQ(mkfifo("pipe", 0600), 0);
  std::string wide(49998, ',');
  for (int row = 0; row < 100; ++row) wide += "\na";
  write_text("wide", wide);
  EXPECT_EQ(refusal_of([] { open_document("pipe"); }), "'pipe' is not a regular file.");
  EXPECT_EQ(refusal_of([] { open_document("wide"); }), "'wide' has more than 5000000 cells.");
}

TEST(TableFile, IsTheOldOneWhenTheDiskIsFull) {
  const Test_folder folder;
  const std::string content = "study,n1\na,1\n";
  write_text("t.txt", content);
  Document document = open_document("t.txt");
  set_text(document, 0, 1, std::string(5000, '7'));
  {
    const File_size_limit full(4096);
    EXPECT_THROW(save_document(document), Refusal);
  }
  EXPECT_EQ(read_text("t.txt"), content);
  EXPECT_TRUE(has_changes(document));
  EXPECT_EQ(std::distance(fs::directory_iterator("."), {}), 1);
  save_document(document);
  EXPECT_EQ(read_text("t.txt"), "study,n1\na," + std::string(5000, '7') + "\n");
}

}  // namespace
