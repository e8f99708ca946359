// Files written whole or not at all: what stays of the old file, its mode and its links.

#include "util/whole_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <climits>

#include "file_size_limit.h"
#include "test_folder.h"

namespace {

namespace fs = std::filesystem;

mode_t mode_of(const char* path) {
  struct stat status {};
  EXPECT_EQ(stat(path, &status), 0) << path;
  return status.st_mode & 07777U;
}

long entries() {
  return std::distance(fs::directory_iterator("."), {});
}

TEST(WholeFile, KeepsTheModeOfTheFileItReplaces) {
  const Test_folder folder;
  const mode_t mask = umask(022);
  ASSERT_TRUE(Q_write_whole("new", "1"));
  EXPECT_EQ(mode_of("new"), 0644U);
  chmod("new", 0600);
  ASSERT_TRUE(Q_write_whole("new", std::string("2\0%s", 4)));
  EXPECT_EQ(mode_of("new"), 0600U);
  EXPECT_EQ(read_text("new"), std::string("2\0%s", 4));
  EXPECT_EQ(entries(), 1);
  umask(mask);
}

TEST(WholeFile, ReplacesWhatALinkPointsAt) {
  const Test_folder folder;
  fs::create_directory("elsewhere");
  write_text("elsewhere/file", "old");
  fs::create_symlink("elsewhere/file", "link");
  ASSERT_TRUE(Q_write_whole("link", "new"));
  EXPECT_TRUE(fs::is_symlink("link"));
  EXPECT_EQ(read_text("elsewhere/file"), "new");

  // A chain of links to a file that is not there yet.
  fs::create_symlink("not yet", "elsewhere/second");
  fs::create_symlink(folder.path() / "elsewhere/second", "first");
  ASSERT_TRUE(Q_write_whole("first", "created"));
  EXPECT_TRUE(fs::is_symlink("first"));
  EXPECT_TRUE(fs::is_symlink("elsewhere/second"));
  EXPECT_EQ(read_text("elsewhere/not yet"), "created");
}

TEST(WholeFile, WritesInPlaceWhereNoFileCanBeMadeBesideIt) {
  const Test_folder folder;
  // A temporary name of this file would be too long for the file system.
  const std::string name(NAME_MAX, 'x');
  write_text(name, "a longer old text");
  ASSERT_TRUE(Q_write_whole(name.c_str(), "new"));
  EXPECT_EQ(read_text(name), "new");
  ASSERT_TRUE(Q_write_whole(name.c_str(), ""));
  EXPECT_EQ(read_text(name), "");
  write_text(name, "old");
  const std::string text(1000, 'y');
  for (const rlim_t room : {0, 1, 3, 4, 999}) {
    bool written = true;
    int error = 0;
    {
      const File_size_limit limit(room);
      written = Q_write_whole(name.c_str(), text);
      error = errno;
    }
    EXPECT_FALSE(written) << room;
    EXPECT_EQ(error, EFBIG) << room;
    EXPECT_EQ(read_text(name), "old") << room;
  }
  EXPECT_FALSE(Q_write_whole(std::string(NAME_MAX + 1, 'x').c_str(), "new"));
}

TEST(WholeFileDeathTest, TellsFilesThatCannotBeWrittenFromFullDisks) {
  const Test_folder folder;
  fs::create_directory("folder");
  for (const char* path : {"none/file", "folder", ""}) {
    EXPECT_FALSE(Q_write_whole(path, "text")) << path;
    EXPECT_EXIT((void)Q_write_whole_or_die(path, "text"), testing::ExitedWithCode(1),
                "File '" + std::string(path) + "' not writable")
        << path;
  }
  write_text("file", "old");
  const File_size_limit full(2);
  EXPECT_FALSE(Q_write_whole_or_die("file", "text"));
  EXPECT_FALSE(Q_write_whole_or_die("new file", "text"));
  EXPECT_EQ(read_text("file"), "old");
  EXPECT_EQ(entries(), 2);
}

}  // namespace
