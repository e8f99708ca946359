// Which names may go into a command line, and what the user is told of the others.

#include "analyses/names.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "test_folder.h"
#include "util/q_string.h"

namespace {

/// What the refusal says about the character; empty when the name is not refused.
std::string fault(const std::string& reason, const std::string& name) {
  if (reason.empty()) return "";
  const std::string start = "The name '" + name + "' cannot be used in a command because it ";
  const std::string end = ". Please change the name and try again.";
  EXPECT_TRUE(reason.starts_with(start) && reason.ends_with(end)) << reason;
  return reason.substr(start.size(), reason.size() - start.size() - end.size());
}

TEST(Names, AreMadeSafe) {
  const struct {
    const char* typed;
    const char* safe;
  } cases[] = {
      {"MyMean", "MyMean"},
      {"My Mean", "My_Mean"},
      {"mean 1: a/b", "mean_1._a-b"},
      {"Left cerebellum, crus I", "Left_cerebellum._crus_I"},
      {"a;b&c|d>e'f\"g\\h*i?", "a.b-c-d-e-f-g-h-i."},
      {"", ""},
  };
  for (const auto& c : cases) EXPECT_EQ(kvo_safe_name(c.typed), c.safe) << c.typed;
}

TEST(Names, ThatTheShellWouldActOnAreRefused) {
  const struct {
    std::string name;
    const char* fault;
  } cases[] = {
      {"", ""},
      {"female", ""},
      {"age_at-onset.2", ""},
      {"10_-20_30", ""},
      {"100%!^@:,+=/", ""},
      {"d\xc3\xa9j\xc3\xa0 vu", ""},
      {"\xe9", ""},
      {"a~b#c", ""},
      {"-n", ""},
      {"$HOME", "contains the character '$'"},
      {"a$", "contains the character '$'"},
      {"`x`", "contains the character '`'"},
      {"IQ(full)", "contains the character '('"},
      {"a)", "contains the character ')'"},
      {"{a", "contains the character '{'"},
      {"a}", "contains the character '}'"},
      {"a;touch${IFS}pwned", "contains the character ';'"},
      {"a&", "contains the character '&'"},
      {"a|b", "contains the character '|'"},
      {"a<b", "contains the character '<'"},
      {"a>b", "contains the character '>'"},
      {"a'b", "contains the character '''"},
      {"a\"b", "contains the character '\"'"},
      {"a\\b", "contains the character '\\'"},
      {"a*", "contains the character '*'"},
      {"a?", "contains the character '?'"},
      {"[a", "contains the character '['"},
      {"a]", "contains the character ']'"},
      {"a\nb", "contains a line feed"},
      {"a\r", "contains a carriage return"},
      {"a\tb", "contains a tab"},
      {"a\x01", "contains the control character 1"},
      {"a\x7f", "contains the control character 127"},
      {std::string("a\0b", 3), "contains the control character 0"},
      {"~root", "has a word that begins with the character '~'"},
      {"a ~root", "has a word that begins with the character '~'"},
      {"#a", "has a word that begins with the character '#'"},
      {"a #b", "has a word that begins with the character '#'"},
  };
  for (const auto& c : cases) {
    const std::string shown = c.name.c_str();  // a message ends at a zero byte
    if (shown.size() != c.name.size())
      EXPECT_NE(kvo_name_refusal(c.name), "");
    else
      EXPECT_EQ(fault(kvo_name_refusal(c.name), c.name), c.fault) << c.name;
  }
}

/// Every byte at three places of a name: whatever is let through, the shell hands on as it is.
TEST(Names, ThatAreLetThroughReachProgramsUnchanged) {
  const Test_folder folder;
  std::filesystem::create_directory("empty");
  write_text("print", "#!/bin/sh\nprintf %s \"$1\" >out\n");
  std::filesystem::permissions("print", std::filesystem::perms(0755));
  write_text("ab", "");
  int let_through = 0;
  for (int byte = 0; byte < 256; ++byte) {
    const std::string character(1, static_cast<char>(byte));
    for (const std::string& name : {character + "b", "a" + character + "b", "a" + character}) {
      if (character == " " || !kvo_name_refusal(name).empty()) continue;
      ++let_through;
      std::filesystem::remove("out");
      EXPECT_EQ(std::system(("./print " + name + " >empty/output 2>&1").c_str()), 0) << name;
      EXPECT_EQ(read_text("out"), name) << byte;
    }
  }
  EXPECT_GT(let_through, 3 * (26 + 26 + 10 + 128));
}

TEST(Names, OfFilesAreRefusedThatLeadElsewhere) {
  const struct {
    std::string name;
    const char* fault;
  } cases[] = {
      {"gm", ""},
      {"a.b-c", ""},
      {"", "is empty"},
      {"gray matter", "contains a blank"},
      {"a,b", "contains the character ','"},
      {"a=b", "contains the character '='"},
      {"a+b", "contains the character '+'"},
      {std::string(201, 'a'), "is longer than 200 bytes"},
      {"\xe9", "is not valid UTF-8"},
      {"..", "begins with the character '.'"},
      {".gm", "begins with the character '.'"},
      {"-gm", "begins with the character '-'"},
      {"a/b", "contains the character '/'"},
      {"/gm", "contains the character '/'"},
      {"g$m", "contains the character '$'"},
      {"~gm", "has a word that begins with the character '~'"},
  };
  for (const auto& c : cases)
    EXPECT_EQ(fault(kvo_file_name_refusal(c.name), c.name), c.fault) << c.name;
}

TEST(Names, OfPathsAreRefusedThatWouldEndALineOfTheBatch) {
  const struct {
    std::string path;
    const char* fault;
  } cases[] = {
      {"/data/it's $HOME (1)/a;b_p.nii.gz", ""},
      {"/data/x\nrm -rf y_p.nii.gz", "contains a line feed"},
      {"/data/x\ry_p.nii.gz", "contains a carriage return"},
  };
  for (const auto& c : cases) EXPECT_EQ(fault(kvo_path_refusal(c.path), c.path), c.fault) << c.path;
}

}  // namespace
