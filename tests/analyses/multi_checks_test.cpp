// Which images, short names and results folders a multimodal analysis takes.

#include <gtest/gtest.h>

#include <filesystem>

#include "analyses/multi.h"
#include "test_folder.h"
#include "util/q_string.h"

namespace {

namespace fs = std::filesystem;

std::string refused(const std::string& name, const std::string& character) {
  return "The name '" + name + "' cannot be used in a command because it contains the character '" +
         character + "'. Please change the name and try again.";
}

TEST(MultiChecks, OfImagesAndShortNames) {
  const Test_folder folder;
  for (const char* file : {"a_p.nii.gz", "b_p.nii.gz", "c_p.nii", "line\nfeed_p.nii.gz"})
    write_text(file, "");
  fs::create_directory("folder_p.nii.gz");
  const auto no_image = [](int number, const char* different = "") {
    return Q_format("No %sp-value image was specified for meta-analysis %i. Please try again.",
                    different, number)
        .str();
  };
  const std::string long_name(191, 'x');
  const char* const longest = long_name.c_str();
  const struct {
    const char *image1, *name1, *image2, *name2;
    std::string result;  // the names, or the refusal
  } cases[] = {
      {"a_p.nii.gz", "", "b_p.nii.gz", "", "meta1 meta2"},
      {"a_p.nii.gz", "vbm", "b_p.nii.gz", "fmri", "vbm fmri"},
      {"a_p.nii.gz", "gm", "b_p.nii.gz", "gm", "gm gm_2"},
      {"a_p.nii.gz", "meta2", "b_p.nii.gz", "", "meta2 meta2_2"},
      {"a_p.nii.gz", "", "b_p.nii.gz", "meta1", "meta1 meta1_2"},
      {"", "", "b_p.nii.gz", "", no_image(1)},
      {"none_p.nii.gz", "", "b_p.nii.gz", "", no_image(1)},
      {"c_p.nii", "", "b_p.nii.gz", "", no_image(1)},
      {"a_p.nii.gz", "", "", "", no_image(2)},
      {"a_p.nii.gz", "", "c_p.nii", "", no_image(2)},
      {"a_p.nii.gz", "", "a_p.nii.gz", "", no_image(2, "different ")},
      {"a_p.nii.gz", "g,m", "b_p.nii.gz", "", refused("g,m", ",")},
      {"a_p.nii.gz", "g$m", "b_p.nii.gz", "(x)", "g$m (x)"},
      {"a_p.nii.gz", "", "b_p.nii.gz", "../x",
       "The name '../x' cannot be used in a command because it begins with the character '.'. "
       "Please change the name and try again."},
      {"a_p.nii.gz", "", "b_p.nii.gz", "x/y", refused("x/y", "/")},
      {"a_p.nii.gz", "-o", "b_p.nii.gz", "",
       "The name '-o' cannot be used in a command because it begins with the character '-'. Please "
       "change the name and try again."},
      {"a_p.nii.gz", "", "b_p.nii.gz", "mask_x",
       "The name 'mask_x' cannot be used: names that begin with 'mask_' are kept for masks. Please "
       "change the name and try again."},
      {"a_p.nii.gz", longest, "b_p.nii.gz", "b", long_name + " b"},
      {"a_p.nii.gz", longest, "b_p.nii.gz", "bc",
       "The names '" + long_name +
           "' and 'bc' are too long for the names of the results. Please shorten them and try "
           "again."},
      {"a_p.nii.gz", "", "folder_p.nii.gz", "",
       "The image 'folder_p.nii.gz' cannot be read. Please choose another one and try again."},
      {"a_p.nii.gz", "", "line\nfeed_p.nii.gz", "",
       "The name 'line\nfeed_p.nii.gz' cannot be used in a command because it contains a line "
       "feed. Please change the name and try again."},
  };
  for (const auto& c : cases) {
    Kvo_multi_pair pair{{c.image1, c.name1}, {c.image2, c.name2}};
    const std::string reason = kvo_check_multi_pair(pair);
    EXPECT_EQ(reason.empty() ? pair.first.name + " " + pair.second.name : reason, c.result);
  }
}

TEST(MultiChecks, OfResultsFolders) {
  const Test_folder folder;
  const fs::path root = folder.path();
  for (const char* name : {"free", "link", "taken", "taken/gm_p.nii.gz", "images"})
    fs::create_directory(root / name);
  const std::string image1 = root / "images" / "a_p.nii.gz";
  const std::string image2 = root / "images" / "b_p.nii.gz";
  write_text(image1, "1");
  write_text(image2, "2");
  write_text(root / "free" / "old_p.nii.gz", "old");
  fs::create_symlink(image2, root / "link" / "gm_p.nii.gz");
  fs::create_symlink("nowhere", root / "link" / "lost_p.nii.gz");
  const auto overwrites = [&](const char* copy) {
    return "The copy '" + (root / copy).string() +
           "' would overwrite one of the two images. Please choose another folder or short name "
           "and try again.";
  };
  const auto not_writable = [&](const char* copy) {
    return "The file '" + (root / copy).string() +
           "' cannot be written. Please choose another folder or short name and try again.";
  };
  const struct {
    const char *folder, *name1, *name2;
    std::string reason;
  } cases[] = {
      {"free", "a", "b", ""},
      {"free", "old", "b", ""},
      {"images", "gm", "wm", ""},
      {"images", "a", "b", ""},
      {"images", "b", "c", overwrites("images/b_p.nii.gz")},
      {"images", "c", "a", overwrites("images/a_p.nii.gz")},
      {"images/../images/.", "c", "a", overwrites("images/../images/./a_p.nii.gz")},
      {"link", "gm", "c", overwrites("link/gm_p.nii.gz")},
      {"link", "c", "gm", ""},
      {"link", "c", "lost", not_writable("link/lost_p.nii.gz")},
      {"taken", "gm", "c", not_writable("taken/gm_p.nii.gz")},
      {"none", "a", "b",
       "The folder '" + (root / "none").string() +
           "' cannot be written to. Please choose another one and try again."},
      {"images/a_p.nii.gz", "a", "b",
       "The folder '" + image1 +
           "' cannot be written to. Please choose another one and try again."},
  };
  for (const auto& c : cases)
    EXPECT_EQ(kvo_check_results_folder(root / c.folder, {{image1, c.name1}, {image2, c.name2}}),
              c.reason)
        << c.folder << " " << c.name1 << " " << c.name2;
  const fs::path free = root / "free";
  const auto replaced = [&] {
    return kvo_replaced_by_copies(free, {{image1, "old"}, {image2, "b"}});
  };
  EXPECT_EQ(replaced(), Q_string_list{free / "old_p.nii.gz"});
  write_text(free / "b_p.nii.gz", "2");
  write_text(free / "old_p.nii.gz", "1");
  EXPECT_EQ(replaced(), Q_string_list()) << "an earlier run left the same copies";
  EXPECT_NE(kvo_check_results_folder("/proc", {{image1, "a"}, {image2, "b"}}), "");
  EXPECT_EQ(read_text(image1) + read_text(image2), "12");
}

}  // namespace
