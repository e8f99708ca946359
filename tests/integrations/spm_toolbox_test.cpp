// The suite laid out as an SPM toolbox: files, modes and texts.

#include "integrations/spm_toolbox.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <map>

#include "kvo_config.h"
#include "test_folder.h"
#include "toolbox_files.h"
#include "util/files.h"

namespace {

using testing::ExitedWithCode;
namespace fs = std::filesystem;

/// An installation in which every file holds its own name and no program is executable.
class Spm_toolbox : public testing::Test {
 protected:
  Spm_toolbox() {
    umask(022);
    for (const std::string& name : toolbox_files()) {
      fs::create_directories((root() / name).parent_path());
      write_text(root() / name, name + '\0');
    }
    write_text(root() / "LICENSE", "not copied");
    Qs_ProgramDir = (root() / "bin/linux64").c_str();
  }

  [[nodiscard]] fs::path root() const { return folder_.path() / "it's the root"; }
  [[nodiscard]] fs::path make_target(const char* name) const {
    const fs::path target = folder_.path() / name;
    fs::create_directories(target);
    return target;
  }
  /// Copies, and returns how many files were told of.
  static int copy(const fs::path& target) {
    int files = 0;
    kvo_copy_toolbox(target.c_str(), [&] { ++files; });
    return files;
  }

 private:
  Test_folder folder_;
};

TEST_F(Spm_toolbox, HasTheFilesOfTheInstallation) {
  for (const char* name : {"toolbox", "my spm's (12) $HOME `x` \"y\" \\ toolbox", "%s%n"}) {
    SCOPED_TRACE(name);
    const fs::path target = make_target(name);
    EXPECT_EQ(copy(target), 19);
    expect_toolbox(target / "KVO", root());
  }
}

TEST_F(Spm_toolbox, KeepsItsSettingsWhenItIsMadeAgain) {
  const fs::path settings = "etc/linux64.ini";
  const fs::path toolbox = make_target("toolbox") / "KVO";
  copy(toolbox.parent_path());
  EXPECT_FALSE(fs::exists(toolbox / settings)) << "the installation has none";

  write_text(root() / settings, "first");
  copy(toolbox.parent_path());
  EXPECT_EQ(read_text(toolbox / settings), "first");

  write_text(root() / settings, "second");
  write_text(toolbox / "README.txt", "old and longer than the new one");
  write_text(toolbox / "bin/linux64/kvo_parse", "old");
  write_text(toolbox / "of the user", "kept");
  fs::permissions(toolbox / "bin/linux64/kvo_parse", fs::perms(0600));
  copy(toolbox.parent_path());
  EXPECT_EQ(read_text(toolbox / settings), "first");
  EXPECT_EQ(read_text(toolbox / "of the user"), "kept");
  fs::remove(toolbox / "of the user");
  fs::remove(toolbox / settings);
  expect_toolbox(toolbox, root());
}

TEST_F(Spm_toolbox, IsNotBegunWhenASourceIsMissing) {
  const fs::path target = make_target("toolbox");
  for (const std::string& name : toolbox_files()) {
    SCOPED_TRACE(name);
    const fs::path program_folder = "bin/linux64";
    const bool program = fs::path(name).parent_path() == program_folder;
    fs::rename(root() / name, root() / "away");
    EXPECT_EXIT(copy(target), ExitedWithCode(1),
                "^Copy: source file '" +
                    (program ? fs::path(name).filename().string() : "../../" + name) +
                    "' not found\\.\nThe program will close");
    EXPECT_TRUE(fs::is_empty(target));
    fs::rename(root() / "away", root() / name);
  }
}

TEST_F(Spm_toolbox, EndsTheProgramWhereItCannotBeWritten) {
  // A file system that takes no new files from anyone, then folders that files are in the way of.
  EXPECT_EXIT(copy("/proc/self"), ExitedWithCode(1),
              "^Copy: target file '/proc/self/KVO/README\\.txt' not writable\\.");
  EXPECT_EXIT(kvo_write_matlab_file("/proc/self"), ExitedWithCode(1),
              "^File '/proc/self/KVO/KVO\\.m' not writable\\.");
  const fs::path target = make_target("toolbox");
  fs::create_directory(target / "KVO");
  write_text(target / "KVO/share", "");
  EXPECT_EXIT(copy(target), ExitedWithCode(1),
              "^Copy: target file '.*/toolbox/KVO/share/atlas_aal_frw\\.nii\\.gz' not writable\\.");
  EXPECT_TRUE(fs::exists(target / "KVO/bin/linux64/kvo_gui")) << "what was made stays";
  EXPECT_EXIT(
      {
        Qs_ProgramDir = "/none";
        copy(target);
      },
      ExitedWithCode(1), "^Folder '/none' not found\\.");
}

TEST_F(Spm_toolbox, CanBeTheInstallationItself) {
  const fs::path target = make_target("toolbox");
  fs::rename(root(), target / "KVO");
  Qs_ProgramDir = (target / "KVO/bin/linux64").c_str();
  copy(target);
  for (const std::string& name : toolbox_files())
    EXPECT_EQ(read_text(target / "KVO" / name), name + '\0');
}

TEST_F(Spm_toolbox, StartsTheProgramFromMatlab) {
  const fs::path target = make_target("toolbox");
  fs::create_directory(target / "KVO");
  write_text(target / "KVO/KVO.m", std::string(5000, 'x'));
  kvo_write_matlab_file(target.c_str());
  EXPECT_EQ(read_text(target / "KVO/KVO.m"), std::string(R"(function kvo()
% kvo: Quorvane v4.31
% (SPM toolbox interface)
%
% Quorvane (formerly Telvarine) is a
% statistical technique for meta-analyzing studies on differences
% in brain activity or structure which used neuroimaging techniques such as
% fMRI, VBM, DTI or PET.
%
% It is made by the Quorvane developers.
% For more information please visit )") + KVO_SITE_URL +
                                                 R"(

    temp = mfilename('fullpath');
    kvo_toolbox_directory = temp(1:length(temp)-4);
    kvo_software_call = sprintf('%s/bin/linux64/kvo_gui', kvo_toolbox_directory);
    system(kvo_software_call);
end
)");
}

TEST(PlainPath, IsOneWordWithoutQuotes) {
  const struct {
    const char* path;
    bool plain;
  } cases[] = {
      {"/opt/spm12/toolbox", true},
      {"/home/ana-maria_2/spm.12+", true},
      {"/home/d\xc3\xa9j\xc3\xa0/spm", true},
      {"/home/my spm", false},
      {"/home/ana's", false},
      {"/a\"b", false},
      {"/a;b", false},
      {"/a,b", false},
      {"/a&b", false},
      {"/a(b)", false},
      {"/a%b", false},
      {"/a$b", false},
      {"/a`b`", false},
      {"/a\\b", false},
      {"/a*b", false},
      {"/a~", false},
      {"/a:b", false},
      {"/a\tb", false},
      {"/a\nb", false},
  };
  for (const auto& c : cases) EXPECT_EQ(kvo_is_plain_path(c.path), c.plain) << c.path;
}

}  // namespace
