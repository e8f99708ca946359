#pragma once

// What an SPM toolbox of the suite holds.

#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "test_folder.h"

/// Paths of the files that the toolbox and the installation have in common.
inline std::vector<std::string> toolbox_files() {
  return {
      "README.txt",
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
      "share/kvo_template.nii.gz",
  };
}

/// The folder holds those files, byte for byte, with their modes under the umask 022, and no others
/// but the ones of `extra`.
inline void expect_toolbox(const std::filesystem::path& toolbox,
                           const std::filesystem::path& installation,
                           const std::set<std::string>& extra = {}) {
  namespace fs = std::filesystem;
  std::set<std::string> files = extra;
  for (const std::string& name : toolbox_files()) {
    files.insert(name);
    EXPECT_TRUE(read_text(toolbox / name) == read_text(installation / name)) << name;
    const fs::perms mode{name.starts_with("bin/") ? 0755U : 0644U};
    EXPECT_EQ(fs::status(toolbox / name).permissions(), mode) << name;
  }
  std::set<std::string> found;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(toolbox))
    if (!entry.is_directory())
      found.insert(fs::relative(entry.path(), toolbox).string());
    else
      EXPECT_EQ(entry.status().permissions(), fs::perms(0755)) << entry.path();
  EXPECT_EQ(found, files);
}
