#pragma once

// An installation and what an SPM toolbox made of it holds.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <set>
#include <string>

#include "test_folder.h"
#include "util/files.h"

/// Paths of the files that the toolbox and the installation have in common.
inline const std::set<std::string> TOOLBOX_FILES = {"README.txt",
                                                    "bin/linux64/imgcalc",
                                                    "bin/linux64/kvo_core",
                                                    "bin/linux64/kvo_edit",
                                                    "bin/linux64/kvo_gui",
                                                    "bin/linux64/kvo_parse",
                                                    "etc/kvo.gtkrc",
                                                    "share/atlas_aal_frw.nii.gz",
                                                    "share/cor_cerebrospinal_fluid.nii.gz",
                                                    "share/cor_fractional_anisotropy.nii.gz",
                                                    "share/cor_white_matter.nii.gz",
                                                    "share/cor_gray_matter.nii.gz",
                                                    "share/mask_brain.nii.gz",
                                                    "share/mask_cerebrospinal_fluid.nii.gz",
                                                    "share/mask_gray_matter.nii.gz",
                                                    "share/mask_intracranial.nii.gz",
                                                    "share/mask_tbss.nii.gz",
                                                    "share/mask_white_matter.nii.gz",
                                                    "share/kvo_template.nii.gz"};

/// The folder holds those files, byte for byte, and the ones of `extra`, with their modes under the
/// umask 022, and no others.
inline void expect_toolbox(const std::filesystem::path& toolbox,
                           const std::filesystem::path& installation,
                           std::set<std::string> extra = {}) {
  namespace fs = std::filesystem;
  std::set<std::string> found;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(toolbox)) {
    const std::string name = fs::relative(entry.path(), toolbox);
    const bool runs = entry.is_directory() || name.starts_with("bin/");
    EXPECT_EQ(entry.status().permissions(), fs::perms(runs ? 0755 : 0644)) << name;
    if (entry.is_directory() || extra.erase(name) > 0) continue;
    found.insert(name);
    EXPECT_TRUE(read_text(entry.path()) == read_text(installation / name)) << name;
  }
  EXPECT_EQ(found, TOOLBOX_FILES);
  EXPECT_TRUE(extra.empty()) << *extra.begin();
}

/// An installation in which every file holds its own name and no program is executable.
class Toolbox_test : public testing::Test {
 protected:
  Toolbox_test() {
    umask(022);
    for (const std::string& name : TOOLBOX_FILES) {
      std::filesystem::create_directories((root() / name).parent_path());
      write_text(root() / name, name + '\0');
    }
    write_text(root() / "LICENSE", "not copied");
    Qs_ProgramDir = (root() / "bin/linux64").c_str();
  }
  [[nodiscard]] std::filesystem::path root() const { return folder_.path() / "it's the root"; }
  [[nodiscard]] std::filesystem::path make_target(const char* name) const {
    std::filesystem::path target = folder_.path() / name;
    std::filesystem::create_directories(target);
    return target;
  }

 private:
  Test_folder folder_;
};
