// Which names may go into a command line, and what the user is told of the others.

#include "analyses/names.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
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

/// Every byte at three places of a name: whatever is let through reaches the engine unchanged, and
/// only what the command language has no place for is refused.
TEST(Names, ThatTheLanguageHoldsReachProgramsUnchanged) {
  const Test_folder folder;
  std::filesystem::create_directory("empty");
  write_text("print", "#!/bin/sh\nprintf '%s\\n' \"$@\" >out\n");
  std::filesystem::permissions("print", std::filesystem::perms(0755));
  write_text("ab", "");
  for (int byte = 0; byte < 256; ++byte) {
    const std::string character(1, static_cast<char>(byte));
    const bool is_held = byte > ' ' && byte != 0x7F && std::strchr(",=+\"'", byte) == nullptr;
    std::string command = "./print";
    std::string expected;
    for (const std::string& name : {character + "b", "a" + character + "b", "a" + character}) {
      ASSERT_EQ(kvo_name_refusal(name).empty(), is_held) << byte;
      command += " " + kvo_word(name);
      expected += name + "\n";
    }
    if (!is_held) continue;
    std::filesystem::remove("out");
    EXPECT_EQ(std::system((command + " >empty/output 2>&1").c_str()), 0);
    EXPECT_EQ(read_text("out"), expected) << byte;
  }
}

TEST(Names, OfFilesAreRefusedThatLeadElsewhere) {
  const struct {
    std::string name;
    const char* fault;
  } cases[] = {
      {"a.b-c", ""},
      {"", "is empty"},
      {"gray matter", "contains a blank"},
      {"a+b", "contains the character '+'"},
      {std::string(201, 'a'), "is longer than 200 bytes"},
      {"\xe9", "is not valid UTF-8"},
      {"..", "begins with the character '.'"},
      {"-gm", "begins with the character '-'"},
      {"a/b", "contains the character '/'"},
      {"g$m", ""},
      {"a\rb", "contains a carriage return"},
      {"a\tb", "contains a tab"},
      {"a\x01", "contains the control character 1"},
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
