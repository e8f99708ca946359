// Blocks of the clipboard: what spreadsheets write becomes cells, and cells become what they read.

#include "companions/kvo_edit/block.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace kvo::edit;

namespace {

TEST(Block, IsReadAsSpreadsheetsWriteIt) {
  struct {
    std::string text;
    Block block;
  } const cases[] = {
      {"", {}},
      {"12", {{"12"}}},
      {"12\n", {{"12"}}},
      // A block of a spreadsheet, with the line feed that it puts at the end.
      {"Smith2004\t12\t31.5\nJones2010\t15\t\n",
       {{"Smith2004", "12", "31.5"}, {"Jones2010", "15", ""}}},
      {"a\tb\r\nc\td\r\n", {{"a", "b"}, {"c", "d"}}},
      {"a\rb\r", {{"a"}, {"b"}}},
      {"a\n\nb\n", {{"a"}, {""}, {"b"}}},
      {"\n", {{""}}},
      {"\t\n", {{"", ""}}},
      {"a\tb\tc\nd\n", {{"a", "b", "c"}, {"d"}}},
      {" 12 \t x y \n", {{"12", "x y"}}},
      {"100%\t<b>&amp;\n", {{"100%", "<b>&amp;"}}},
      {"\xc3\xa9\xc3\xa8\t\xe4\xb8\xad\n", {{"\xc3\xa9\xc3\xa8", "\xe4\xb8\xad"}}},
      // Quotes that hold a cell together, and quotes that are part of it.
      {"\"two\nlines\"\tb\n", {{"two\nlines", "b"}}},
      {"\"a\tb\"\n", {{"a\tb"}}},
      {"\"say \"\"hi\"\"\"\tb\n", {{"say \"hi\"", "b"}}},
      {"\"word\"\tb\n", {{"\"word\"", "b"}}},
      {"\"open\tb\n", {{"\"open", "b"}}},
      {"5\"\t6\"\n", {{"5\"", "6\""}}},
      {"\"a\"b\tc\n", {{"\"a\"b", "c"}}},
  };
  for (const auto& c : cases)
    EXPECT_EQ(parse_block(c.text), c.block) << testing::PrintToString(c.text);
}

TEST(Block, IsWrittenSoThatItReadsBack) {
  struct {
    Block block;
    std::string text;
  } const cases[] = {
      {{{"a", "12"}, {"b", "NA"}}, "a\t12\nb\tNA\n"},
      {{{"", ""}}, "\t\n"},
      {{{"\"word\""}}, "\"word\"\n"},
      {{{"a\tb", "c\nd"}}, "\"a\tb\"\t\"c\nd\"\n"},
      {{{"say \"hi\""}}, "say \"hi\"\n"},
      {{{"\"a\"\"b\""}}, "\"\"\"a\"\"\"\"b\"\"\"\n"},
      {{{"\"", "\"\"", "\"\"\""}}, "\"\t\"\"\t\"\"\"\"\"\"\"\"\n"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(format_block(c.block), c.text);
    EXPECT_EQ(parse_block(format_block(c.block)), c.block) << testing::PrintToString(c.text);
  }
}

}  // namespace
