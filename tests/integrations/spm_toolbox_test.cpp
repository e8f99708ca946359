// The suite laid out as an SPM toolbox: files, modes and texts.

#include "integrations/spm_toolbox.h"

#include <gmock/gmock.h>

#include "kvo_config.h"
#include "toolbox_files.h"

namespace {

using testing::ExitedWithCode;
namespace fs = std::filesystem;

class Spm_toolbox : public Toolbox_test {
 protected:
  /// Copies, and returns how many files were told of.
  static int copy(const fs::path& target) {
    int files = 0;
    kvo_copy_toolbox(target.c_str(), [&] { ++files; });
    return files;
  }
};

TEST_F(Spm_toolbox, HasTheFilesOfTheInstallationAlsoWhenItIsTheInstallation) {
  for (const char* name : {"toolbox", "my spm's (12) $HOME `x` \"y\" \\ toolbox", "%s%n"}) {
    SCOPED_TRACE(name);
    const fs::path target = make_target(name);
    EXPECT_EQ(copy(target), 19);
    expect_toolbox(target / "KVO", root());
    Qs_ProgramDir = (target / "KVO/bin/linux64").c_str();
    copy(target);
    expect_toolbox(target / "KVO", root());
    Qs_ProgramDir = (root() / "bin/linux64").c_str();
  }
}

TEST_F(Spm_toolbox, KeepsItsSettingsWhenItIsMadeAgain) {
  const fs::path target = make_target("toolbox");
  const fs::path settings = "etc/linux64.ini";
  write_text(root() / settings, "first");
  copy(target);
  expect_toolbox(target / "KVO", root(), {settings});
  EXPECT_EQ(read_text(target / "KVO" / settings), "first");
  write_text(root() / settings, "second");
  write_text(target / "KVO/README.txt", "old and longer than the new one");
  write_text(target / "KVO/of the user", "kept");
  fs::permissions(target / "KVO/bin/linux64/kvo_parse", fs::perms(0600));
  copy(target);
  expect_toolbox(target / "KVO", root(), {settings, "of the user"});
  EXPECT_EQ(read_text(target / "KVO" / settings), "first");
  EXPECT_EQ(read_text(target / "KVO/of the user"), "kept");
}

TEST_F(Spm_toolbox, IsNotBegunWhenASourceIsMissing) {
  const fs::path target = make_target("toolbox");
  for (const std::string& name : TOOLBOX_FILES) {
    SCOPED_TRACE(name);
    const bool program = name.starts_with("bin/");
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
  // A file system that takes no new files from anyone, then a file in the way of a folder.
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
  Qs_ProgramDir = "/none";
  EXPECT_EXIT(copy(target), ExitedWithCode(1), "^Folder '/none' not found\\.");
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
  for (const char* path :
       {"/opt/spm12/toolbox", "/home/ana-maria_2/spm.12+", "/d\xc3\xa9j\xc3\xa0"})
    EXPECT_TRUE(kvo_is_plain_path(path)) << path;
  for (const char character : std::string_view(" '\";,&()%$`\\*~:@[]^{}<>|\t\n"))
    EXPECT_FALSE(kvo_is_plain_path(std::string("/a") + character + "b")) << character;
}

}  // namespace
