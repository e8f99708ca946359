// File operations by formatted path, the program folder and the end after a fatal error.

#include "util/files.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>

#include "file_size_limit.h"
#include "test_folder.h"
#include "util/error.h"

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::ExitedWithCode;

std::string fatal(const std::string& message) {
  return message + "\\.\nThe program will close as this problem could cause fatal errors\\.";
}

mode_t mode_of(const char* path) {
  struct stat status {};
  EXPECT_EQ(stat(path, &status), 0) << path;
  return status.st_mode & 07777U;
}

TEST(FileExists, LooksForTheNameInTheListing) {
  const Test_folder folder;
  fs::create_directory("sub");
  write_text("sub/file", "");
  write_text("%s", "");
  write_text("back\\slash", "");
  fs::create_directory("odd\\");
  write_text("odd\\/inside", "");
  fs::create_symlink("nowhere", "dangling");
  struct Case {
    std::string path;
    int exists;
  };
  const Case cases[] = {
      {"sub", 1},
      {"sub/", 0},  // the empty name is no entry
      {"sub/file", 1},
      {"sub/FILE", 0},
      {"sub//file", 1},
      {"sub/fil", 0},
      {"sub/.", 1},
      {"none/file", 0},
      {"sub/file/x", 0},
      {(folder.path() / "sub").string(), 1},
      {"", 0},
      {"%s", 1},
      {"dangling", 1},
      {"back\\slash", 0},      // split at the backslash: there is no folder "back\"
      {"./odd\\inside", 1},    // the folder "odd\" of this file system
      {"sub\\other/file", 0},  // the slash stands further right
  };
  for (const Case& c : cases) {
    EXPECT_EQ(Q_file_exists("%s", c.path.c_str()), c.exists) << c.path;
    EXPECT_EQ(Q_program_exists("%s", c.path.c_str()), c.exists) << c.path;
  }
  EXPECT_EQ(Q_program_exists("%s", "sh"), 0) << "PATH takes no part";
}

TEST(Open, GivesNullForWhatCannotBeOpened) {
  const Test_folder folder;
  write_text("file 1", "content");
  EXPECT_NE(Q_openr("file %i", 1), nullptr);
  ASSERT_EQ(mkfifo("pipe", 0600), 0);
  for (const char* path : {"none", "pipe", "."}) EXPECT_EQ(Q_openr("%s", path), nullptr) << path;
  EXPECT_EQ(Q_openw("none/file"), nullptr);
  ASSERT_NE(Q_openw("file %i", 1), nullptr);
  EXPECT_EQ(read_text("file 1"), "") << "opening for writing empties";
  ASSERT_NE(Q_openw("new"), nullptr);
  EXPECT_TRUE(fs::exists("new"));
}

TEST(OpenDeathTest, EndsTheProgramWithAMessage) {
  const Test_folder folder;
  EXPECT_EXIT(Q_openr_or_die("no%i", 1), ExitedWithCode(1), fatal("File 'no1' not found"));
  EXPECT_EXIT(Q_openr_or_die("%s", "%s%n"), ExitedWithCode(1), fatal("File '%s%n' not found"));
  EXPECT_EXIT(Q_openw_or_die("no/%s", "f"), ExitedWithCode(1), fatal("File 'no/f' not writable"));
  EXPECT_EXIT(Q_openr_gz_or_die("no.gz"), ExitedWithCode(1),
              fatal("Compressed file 'no.gz' not found"));
  EXPECT_EXIT(Q_chdir_or_die("no/%s", "f"), ExitedWithCode(1), fatal("Folder 'no/f' not found"));
}

TEST(ErrorDeathTest, ShowsItsTextOnceAndNeverReturns) {
  EXPECT_EXIT(Q_error("%s and %i", "this", 7), ExitedWithCode(1), fatal("this and 7"));
  // An error while the presenter shows one goes to standard error, not to the presenter again.
  EXPECT_EXIT(
      {
        Q_set_error_presenter([](const char* text) {
          std::fprintf(stderr, "[%s]\n", text);
          Q_error("second");
        });
        Q_error("first");
      },
      ExitedWithCode(1), "^\\[first[^[]*\\]\nsecond\\.\n[^[]*$");
}

TEST(OpenGz, ReadsCompressedAndPlainFiles) {
  const Test_folder folder;
  write_text("plain", "text");
  gzFile out = gzopen("packed.gz", "wb");
  gzputs(out, "text");
  gzclose(out);
  for (const char* path : {"plain", "packed.gz"}) {
    const Q_gz_file file = Q_openr_gz_or_die("%s", path);
    std::string text(10, '\0');
    text.resize(static_cast<std::size_t>(gzread(file.get(), text.data(), 10)));
    EXPECT_EQ(text, "text") << path;
  }
}

TEST(QuietOperations, ActOrDoNothing) {
  const Test_folder folder;
  write_text("file", "");
  Q_rm("%s", "file");
  EXPECT_FALSE(fs::exists("file"));
  Q_rm("file");

  const mode_t mask = umask(027);
  Q_mkdir("folder %i", 1);
  umask(mask);
  EXPECT_EQ(mode_of("folder 1"), 0750U);
  write_text("folder 1/inside", "");
  Q_mkdir("folder 1");
  EXPECT_TRUE(fs::exists("folder 1/inside"));
  Q_mkdir("none/folder");
  EXPECT_FALSE(fs::exists("none"));
  Q_rm("folder 1");
  EXPECT_TRUE(fs::exists("folder 1")) << "a folder that is not empty stays";

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

TEST(Copy, IsByteForByte) {
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
  fs::rename("running program", "copy 1");
  fs::create_symlink("copy 1", "link");
  Q_cp("copy 1", "link");
  EXPECT_TRUE(read_text("copy 1") == bytes) << "copied onto itself";
}

TEST(CopyDeathTest, EndsTheProgramWhenItIsNotWhole) {
  const Test_folder folder;
  write_text("file", std::string(1000, 'x'));
  EXPECT_EXIT(Q_cp("none", "copy"), ExitedWithCode(1), fatal("Copy: source file 'none' not found"));
  EXPECT_FALSE(fs::exists("copy"));
  EXPECT_EXIT(Q_cp(".", "copy"), ExitedWithCode(1),
              fatal("Copy: source file '.' is not a regular file"));
  EXPECT_EXIT(Q_cp("file", "no/%s", "f"), ExitedWithCode(1),
              fatal("Copy: target file 'no/f' not writable"));
  EXPECT_EXIT(
      {
        const File_size_limit limit(999);
        Q_cp("file", "short");
      },
      ExitedWithCode(1), fatal("Copy: target file 'short' not writable"));
  EXPECT_FALSE(fs::exists("short"));
}

TEST(Ls, ListsByPrefixAndSuffixInByteOrder) {
  const Test_folder folder;
  fs::create_directory("share");
  for (const char* name : {"mask_b.nii.gz", "mask_a.nii.gz", "mask_c.nii", "mask_.nii.gz",
                           "Mask_d.nii.gz", ".hidden", "ab", "mask_B.nii.gz"})
    write_text(fs::path("share") / name, "");
  struct Case {
    const char* prefix;
    const char* suffix;
    Q_string_list names;
  };
  const Case cases[] = {
      {"mask_", ".nii.gz", {"mask_.nii.gz", "mask_B.nii.gz", "mask_a.nii.gz", "mask_b.nii.gz"}},
      {"mask_a", "a.nii.gz", {"mask_a.nii.gz"}},  // they may overlap in the name
      {"ab", "abab", {}},                         // longer than the name
      {".", "", {".", "..", ".hidden"}},
      {"",
       "",
       {".", "..", ".hidden", "Mask_d.nii.gz", "ab", "mask_.nii.gz", "mask_B.nii.gz",
        "mask_a.nii.gz", "mask_b.nii.gz", "mask_c.nii"}},
  };
  for (const Case& c : cases) {
    Q_string_list list{"left over", "from before"};
    const int count = Q_ls(list, "share", c.prefix, c.suffix);
    EXPECT_EQ(list, c.names) << c.prefix << "*" << c.suffix;
    EXPECT_EQ(count, static_cast<int>(c.names.size())) << c.prefix << "*" << c.suffix;
  }
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
  struct Case {
    std::string start;  // folder
    std::string path;   // by which the program is started there
  };
  const Case cases[] = {
      {".", (root / "bin/linux64/kvo_gui").string()},
      {".", "in st/bin/linux64/kvo_gui"},
      {".", "link/kvo_gui"},
      {"elsewhere", "../in st/bin/../bin/linux64/kvo_gui"},
      {"in st/bin/linux64", "kvo_gui"},
      {"in st/bin/linux64", ""},
      {"in st/bin/linux64", "./%s"},
  };
  for (const Case& c : cases) {
    fs::current_path(folder.path() / c.start);
    const fs::path before = fs::current_path();
    Q_string found;
    Qs_ProgramDir.clear();
    Q_getprogdir(found, c.path.c_str());
    EXPECT_EQ(Qs_ProgramDir.str(), (root / "bin/linux64").string()) << c.path;
    EXPECT_EQ(found.str(), root.string()) << c.path;
    EXPECT_EQ(fs::current_path(), before) << c.path;
  }
}

TEST(StartedProgram, IsTheFileBehindALinkFromOutsideOrANameAlongPath) {
  const std::string self = fs::read_symlink("/proc/self/exe");
  const Test_folder folder;
  write_text("kvo_gui", "");
  fs::create_directory("bin");
  fs::create_symlink(self, "bin/link");
  fs::create_symlink("link", "bin/link to link");
  fs::create_directory_symlink("bin", "folder");
  write_text("folder/program", "");
  for (const char* made : {"a user's/bin/linux64", "a user's/etc", "no/bin/linux64"})
    fs::create_directories(made);
  write_text("a user's/etc/kvo.gtkrc", "");
  for (const char* link : {"a user's/bin/linux64/link", "no/bin/linux64/link"})
    fs::create_symlink(self, link);
  struct Case {
    const char* word;
    std::string path;
  };
  const Case cases[] = {
      {"bin/link", self},
      {"./bin/link to link", self},
      {"folder/link", self},
      {"no/bin/linux64/link", self},
      {"a user's/bin/linux64/link", "a user's/bin/linux64/link"},
      {"kvo_gui", self},  // without a slash, so not the file in the current folder
      {"", self},
      {"./kvo_gui", "./kvo_gui"},
      {"folder/program", "folder/program"},
      {"none/kvo_gui", "none/kvo_gui"},
  };
  for (const Case& c : cases) EXPECT_EQ(Q_started_program(c.word).str(), c.path) << c.word;
}

TEST(ProgramFolderDeathTest, MustBeThere) {
  const Test_folder folder;
  Q_string root;
  EXPECT_EXIT(Q_getprogdir(root, "none/kvo_gui"), ExitedWithCode(1),
              fatal("Folder 'none/' not found"));
}

}  // namespace
