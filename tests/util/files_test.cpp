// File operations by formatted path, the program folder and the end after a fatal error.

#include "util/files.h"

#include <gmock/gmock.h>

#include <filesystem>

#include "test_folder.h"
#include "util/error.h"

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;

/// Expects the end of the program with a message.
#define EXPECT_FATAL(statement, message)             \
  EXPECT_EXIT(statement, testing::ExitedWithCode(1), \
              std::string(message) +                 \
                  "\\.\nThe program will close as this problem could cause fatal errors\\.")

TEST(FileExists, LooksForTheNameInTheListing) {
  const Test_folder folder;
  fs::create_directory("sub");
  fs::create_directory("odd\\");
  for (const char* file : {"sub/file", "%s", "back\\slash", "odd\\/inside"}) write_text(file, "");
  fs::create_symlink("nowhere", "dangling");
  const auto exists = [](const std::string& path) {
    EXPECT_EQ(Q_program_exists("%s", path.c_str()), Q_file_exists("%s", path.c_str())) << path;
    return Q_file_exists("%s", path.c_str());
  };
  // Of the last one the folder is "odd\".
  for (const std::string path :
       {"sub", "sub/file", "sub//file", "sub/.", "%s", "dangling", "./odd\\inside"}) {
    EXPECT_EQ(exists(path), 1) << path;
    EXPECT_EQ(exists((folder.path() / path).string()), 1) << path;
  }
  // The empty name is no entry, a path is split at its last slash or backslash, and nothing is
  // looked for along PATH.
  for (const char* path : {"", "sub/", "sub/FILE", "sub/fil", "none/file", "sub/file/x",
                           "back\\slash", "sub\\other/file", "sh"})
    EXPECT_EQ(exists(path), 0) << path;
}

TEST(Open, GivesNullOrEndsTheProgram) {
  const Test_folder folder;
  write_text("file 1", "content");
  EXPECT_NE(Q_openr("file %i", 1), nullptr);
  ASSERT_EQ(mkfifo("pipe", 0600), 0);
  for (const char* path : {"none", "pipe", "."}) EXPECT_EQ(Q_openr("%s", path), nullptr) << path;
  EXPECT_EQ(Q_openw("none/file"), nullptr);
  ASSERT_NE(Q_openw("file %i", 1), nullptr);
  EXPECT_EQ(read_text("file 1"), "") << "opening for writing empties";
  ASSERT_NE(Q_openw_or_die("new"), nullptr);
  EXPECT_TRUE(fs::exists("new"));
  EXPECT_FATAL(Q_openr_or_die("%s%s", "%n", "1"), "File '%n1' not found");
  EXPECT_FATAL(Q_openw_or_die("no/%s", "f"), "File 'no/f' not writable");
  EXPECT_FATAL(Q_openr_gz_or_die("no.gz"), "Compressed file 'no.gz' not found");
  EXPECT_FATAL(Q_chdir_or_die("no/%s", "f"), "Folder 'no/f' not found");

  gzFile out = gzopen("packed.gz", "wb");
  gzputs(out, "text");
  gzclose(out);
  write_text("plain", "text");
  for (const char* path : {"plain", "packed.gz"}) {
    char text[5] = "";
    EXPECT_EQ(gzread(Q_openr_gz_or_die("%s", path).get(), text, 5), 4) << path;
    EXPECT_STREQ(text, "text") << path;
  }
}

TEST(ErrorDeathTest, ShowsItsTextOnceAndNeverReturns) {
  EXPECT_FATAL(Q_error("%s and %i", "this", 7), "^this and 7");
  // An error while the presenter shows one goes to standard error, not to the presenter again.
  EXPECT_EXIT(
      {
        Q_set_error_presenter([](const char* text) {
          std::fprintf(stderr, "[%s]\n", text);
          Q_error("second");
        });
        Q_error("first");
      },
      testing::ExitedWithCode(1), "^\\[first[^[]*\\]\nsecond\\.\n[^[]*$");
}

TEST(QuietOperations, ActOrDoNothing) {
  const Test_folder folder;
  write_text("file", "");
  for (int i = 0; i < 2; ++i) Q_rm("%s", "file");
  EXPECT_FALSE(fs::exists("file"));

  const mode_t mask = umask(027);
  Q_mkdir("folder %i", 1);
  umask(mask);
  EXPECT_EQ(mode_of("folder 1"), 0750U);
  write_text("folder 1/inside", "");
  Q_mkdir("folder 1");
  Q_rm("folder 1");
  EXPECT_TRUE(fs::exists("folder 1/inside"));
  Q_mkdir("none/folder");
  EXPECT_FALSE(fs::exists("none"));

  write_text("program", "");
  chmod("program", 06600);
  Q_chmod_x("%s", "program");
  EXPECT_EQ(mode_of("program"), 0755U);
  Q_chmod_x("none");

  Q_chdir("none");
  EXPECT_EQ(fs::current_path(), folder.path());
  Q_chdir("folder %i", 1);
  Q_string here;
  Q_getdir(here);
  EXPECT_EQ(here.str(), (folder.path() / "folder 1").string());
}

TEST(Copy, IsByteForByteAndWholeOrNotAtAll) {
  const Test_folder folder;
  const std::string bytes = std::string(3 * 262144 + 1, 'x') + std::string("\0\r\n\xFF", 4);
  write_text("%s", bytes);
  write_text("empty", "");
  write_text("old", "longer than nothing");
  Q_cp("%s", "copy %i", 1);
  EXPECT_TRUE(read_text("copy 1") == bytes);
  Q_cp("empty", "old");
  EXPECT_EQ(read_text("old"), "");
  fs::create_hard_link("copy 1", "running program");
  Q_cp("empty", "copy 1");
  EXPECT_TRUE(read_text("running program") == bytes) << "written over";
  fs::create_hard_link("running program", "same file");
  fs::create_symlink("running program", "link");
  Q_cp("running program", "link");
  EXPECT_TRUE(fs::equivalent("same file", "link")) << "copied onto itself";

  EXPECT_FATAL(Q_cp("none", "new"), "Copy: source file 'none' not found");
  EXPECT_FATAL(Q_cp(".", "new"), "Copy: source file '.' is not a regular file");
  EXPECT_FATAL(Q_cp("%s", "no/%s", "f"), "Copy: target file 'no/f' not writable");
  EXPECT_FALSE(fs::exists("new"));
}

TEST(Ls, ListsByPrefixAndSuffixInByteOrder) {
  const Test_folder folder;
  fs::create_directory("share");
  for (const char* name : {"mask_b.nii.gz", "mask_a.nii.gz", "mask_c.nii", "mask_.nii.gz",
                           "Mask_d.nii.gz", ".hidden", "ab", "mask_B.nii.gz"})
    write_text(fs::path("share") / name, "");
  const auto listed = [](const char* prefix, const char* suffix) {
    Q_string_list list{"left over", "from before"};
    const int count = Q_ls(list, "share", prefix, suffix);
    EXPECT_EQ(count, static_cast<int>(list.size()));
    return list;
  };
  EXPECT_THAT(listed("mask_", ".nii.gz"),
              ElementsAre("mask_.nii.gz", "mask_B.nii.gz", "mask_a.nii.gz", "mask_b.nii.gz"));
  EXPECT_THAT(listed("mask_a", "a.nii.gz"), ElementsAre("mask_a.nii.gz")) << "they may overlap";
  EXPECT_THAT(listed("ab", "abab"), ElementsAre());
  EXPECT_THAT(listed(".", ""), ElementsAre(".", "..", ".hidden"));
  Q_string_list untouched{"kept"};
  EXPECT_EQ(Q_ls(untouched, "none", "", ""), 0);
  EXPECT_THAT(untouched, ElementsAre("kept"));
}

TEST(ProgramFolder, IsFoundFromTheStartingPath) {
  const Test_folder folder;
  fs::create_directories("in st/bin/linux64");
  fs::create_directory("elsewhere");
  const fs::path root = folder.path() / "in st";
  fs::create_symlink(root / "bin/linux64", "link");
  const std::pair<std::string, std::string> cases[] = {
      // Where the program is started, and by which path.
      {".", (root / "bin/linux64/kvo_gui").string()},
      {".", "in st/bin/linux64/kvo_gui"},
      {".", "link/kvo_gui"},
      {"elsewhere", "../in st/bin/../bin/linux64/kvo_gui"},
      {"in st/bin/linux64", ""},
      {"in st/bin/linux64", "./%s"},
  };
  Q_string found;
  for (const auto& [start, path] : cases) {
    fs::current_path(folder.path() / start);
    Qs_ProgramDir.clear();
    Q_getprogdir(found, path.c_str());
    EXPECT_EQ(Qs_ProgramDir.str(), (root / "bin/linux64").string()) << path;
    EXPECT_EQ(found.str(), root.string()) << path;
    EXPECT_TRUE(fs::equivalent(".", folder.path() / start)) << path;
  }
  EXPECT_FATAL(Q_getprogdir(found, "none/kvo_gui"), "Folder 'none/' not found");
}

TEST(StartedProgram, IsTheFileBehindALinkFromOutsideOrANameAlongPath) {
  const std::string self = fs::read_symlink("/proc/self/exe");
  const Test_folder folder;
  for (const char* made : {"bin", "a user's/bin/linux64", "a user's/etc", "no/bin/linux64"})
    fs::create_directories(made);
  for (const char* made : {"kvo_gui", "bin/program", "a user's/etc/kvo.gtkrc"})
    write_text(made, "");
  for (const char* link : {"bin/link", "a user's/bin/linux64/link", "no/bin/linux64/link"})
    fs::create_symlink(self, link);
  fs::create_symlink("link", "bin/link to link");
  fs::create_directory_symlink("bin", "folder");
  const auto started = [](const char* word) { return Q_started_program(word).str(); };
  // A word without a slash is not the file in the current folder.
  for (const char* word :
       {"bin/link", "./bin/link to link", "folder/link", "no/bin/linux64/link", "kvo_gui", ""})
    EXPECT_EQ(started(word), self) << word;
  for (const char* word :
       {"a user's/bin/linux64/link", "./kvo_gui", "folder/program", "none/kvo_gui"})
    EXPECT_EQ(started(word), word);
}

}  // namespace
