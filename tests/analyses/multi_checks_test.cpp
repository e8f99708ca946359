// Which images, short names and results folders a multimodal analysis takes.

#include <gtest/gtest.h>

#include <filesystem>

#include "analyses/multi.h"
#include "test_folder.h"
#include "util/q_string.h"

namespace {

namespace fs = std::filesystem;

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
  const std::string change = "Please change the name and try again.";
  const std::string longest(191, 'x');
  const struct {
    const char* image1;
    std::string name1;
    const char *image2, *name2;
    std::string result;  // the names, or the refusal
  } cases[] = {
      {"a_p.nii.gz", "", "b_p.nii.gz", "", "meta1 meta2"},
      {"a_p.nii.gz", "gm", "b_p.nii.gz", "gm", "gm gm_2"},
      {"a_p.nii.gz", "meta2", "b_p.nii.gz", "", "meta2 meta2_2"},
      {"a_p.nii.gz", "", "b_p.nii.gz", "meta1", "meta1 meta1_2"},
      {"a_p.nii.gz", "g$m", "b_p.nii.gz", "(x)", "g$m (x)"},
      {"a_p.nii.gz", longest, "b_p.nii.gz", "b", longest + " b"},
      {"none_p.nii.gz", "", "b_p.nii.gz", "", no_image(1)},
      {"c_p.nii", "", "b_p.nii.gz", "", no_image(1)},
      {"a_p.nii.gz", "", "", "", no_image(2)},
      {"a_p.nii.gz", "", "c_p.nii", "", no_image(2)},
      {"a_p.nii.gz", "", "a_p.nii.gz", "", no_image(2, "different ")},
      {"a_p.nii.gz", "x/y", "b_p.nii.gz", "",
       "The name 'x/y' cannot be used in a command because it contains the character '/'. " +
           change},
      {"a_p.nii.gz", "", "b_p.nii.gz", "mask_x",
       "The name 'mask_x' cannot be used: names that begin with 'mask_' are kept for masks. " +
           change},
      {"a_p.nii.gz", longest, "b_p.nii.gz", "bc",
       "The names '" + longest +
           "' and 'bc' are too long for the names of the results. Please shorten them and try "
           "again."},
      {"a_p.nii.gz", "", "folder_p.nii.gz", "",
       "The image 'folder_p.nii.gz' cannot be read. Please choose another one and try again."},
      {"a_p.nii.gz", "", "line\nfeed_p.nii.gz", "",
       "The name 'line\nfeed_p.nii.gz' cannot be used in a command because it contains a line "
       "feed. " +
           change},
  };
  for (const auto& c : cases) {
    Kvo_multi_pair pair{{c.image1, c.name1}, {c.image2, c.name2}};
    const std::string reason = kvo_check_multi_pair(pair);
    EXPECT_EQ(reason.empty() ? pair.first.name + " " + pair.second.name : reason, c.result);
  }
}

TEST(MultiChecks, OfResultsFolders) {
  const Test_folder folder;
  for (const char* name : {"free", "link", "taken", "taken/gm_p.nii.gz", "images"})
    fs::create_directory(name);
  const std::string image1 = fs::absolute("images/a_p.nii.gz");
  const std::string image2 = fs::absolute("images/b_p.nii.gz");
  write_text(image1, "1");
  write_text(image2, "2");
  write_text("free/old_p.nii.gz", "old");
  fs::create_symlink(image2, "link/gm_p.nii.gz");
  fs::create_symlink("nowhere", "link/lost_p.nii.gz");
  const std::string overwrites =
      "' would overwrite one of the two images. Please choose another folder or short name and try "
      "again.";
  const std::string not_writable =
      "' cannot be written. Please choose another folder or short name and try again.";
  const std::string no_folder = "' cannot be written to. Please choose another one and try again.";
  const struct {
    const char *folder, *name1, *name2;
    std::string reason;
  } cases[] = {
      {"free", "old", "b", ""},
      {"images", "gm", "wm", ""},
      {"images", "a", "b", ""},
      {"images", "b", "c", "The copy 'images/b_p.nii.gz" + overwrites},
      {"images/../images/.", "c", "a", "The copy 'images/../images/./a_p.nii.gz" + overwrites},
      {"link", "gm", "c", "The copy 'link/gm_p.nii.gz" + overwrites},
      {"link", "c", "gm", ""},
      {"link", "c", "lost", "The file 'link/lost_p.nii.gz" + not_writable},
      {"taken", "gm", "c", "The file 'taken/gm_p.nii.gz" + not_writable},
      {"none", "a", "b", "The folder 'none" + no_folder},
      {"/proc", "a", "b", "The folder '/proc" + no_folder},
      {"images/a_p.nii.gz", "a", "b", "The folder 'images/a_p.nii.gz" + no_folder},
  };
  for (const auto& c : cases)
    EXPECT_EQ(kvo_check_results_folder(c.folder, {{image1, c.name1}, {image2, c.name2}}), c.reason)
        << c.folder << " " << c.name1 << " " << c.name2;
  const auto replaced = [&] {
    return kvo_replaced_by_copies("free", {{image1, "old"}, {image2, "b"}});
  };
  EXPECT_EQ(replaced(), Q_string_list{"free/old_p.nii.gz"});
  write_text("free/b_p.nii.gz", "2");
  write_text("free/old_p.nii.gz", "1");
  EXPECT_EQ(replaced(), Q_string_list()) << "an earlier run left the same copies";
  EXPECT_EQ(read_text(image1) + read_text(image2), "12");
}

}  // namespace
