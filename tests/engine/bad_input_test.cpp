// What users, editors and strangers can leave in a folder: each is refused with one line that says
// where and why, and the folder stays as it is.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <functional>

#include "runner.h"

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

const std::string good_table =
    "study\tn1\tn2\tthreshold_t\tfemale\nA\t12\t14\tNA\t1\nB\t20\tNA\t3.1\t0\n";
const std::string good_peaks = "# space: MNI\n24 -14 6 4.1\n30 -10 4 -2.2\n";

void write_good_folder() {
  write_text("kvo_table.txt", good_table);
  write_text("A.peaks.txt", good_peaks);
  write_text("B.peaks.txt", "# space: Talairach\n22 -16 4 p\n");
}

struct Case {
  std::function<void()> spoil;
  const char* reason;  ///< of the closing line, after "WARNING: "
};

std::function<void()> table(const std::string& text) {
  return [text] { write_text("kvo_table.txt", text); };
}

std::function<void()> row(const std::string& row) {
  return table("study\tn1\tn2\tthreshold_t\n" + row + "\nB\t20\n");
}

std::function<void()> peaks(const std::string& text) {
  return [text] { write_text("A.peaks.txt", text); };
}

std::function<void()> peak(const std::string& line) {
  return peaks("# space: MNI\n\n" + line + "\n");
}

std::function<void()> removed(const std::string& path) {
  return [path] { fs::remove_all(path); };
}

void expect_refused(const Installation& engine, const std::string& command, const Case& c) {
  c.spoil();
  const auto before = snapshot();
  const Outcome outcome = engine.run(command);
  EXPECT_EQ(outcome.status, 1) << c.reason;
  ASSERT_EQ(outcome.lines.size(), 1U) << c.reason << "\nlast line: " << outcome.closing();
  EXPECT_THAT(outcome.closing(), testing::StartsWith(std::string("WARNING: ") + c.reason));
  EXPECT_EQ(snapshot(), before) << c.reason;
}

TEST(BadInput, OfPreprocessingIsRefused) {
  const Case cases[] = {
      {removed("kvo_table.txt"), "'kvo_table.txt' cannot be opened: No such file"},
      {table(""), "'kvo_table.txt' holds no studies."},
      {table("\n \n\t\n"), "'kvo_table.txt' holds no studies."},
      {table("study\tn1\n"), "'kvo_table.txt' holds no studies."},
      {table("name\tn1\nA\t12\n"), "'kvo_table.txt', line 1: there is no column 'study'."},
      {table("\n\nstudy\tn\nA\t12\n"), "'kvo_table.txt', line 3: there is no column 'n1'."},
      {table("study\tn1\tn1\nA\t12\t12\n"), "'kvo_table.txt', line 1: there are two columns 'n1'."},
      {table("study\tn1\nA\t12\nA\t13\n"),
       "'kvo_table.txt', line 3: there is already a study 'A' in line 2."},
      {table("study\tn1\nA\t12\t13\n"),
       "'kvo_table.txt', line 2: there are 3 cells, but the header has 2 columns"},
      {table("study\tn1\r\nA\t12\r\nB  20\r\n"),
       "'kvo_table.txt', line 3: there are 3 cells, but the header has 2 columns"},
      {table("study\tn1\n\t12\n"), "'kvo_table.txt', line 2: the study has no name."},
      {table("study\tn1\nNA\t12\n"), "'kvo_table.txt', line 2: the study has no name."},
      {table("study\tn1\n../../evil\t12\n"),
       "'kvo_table.txt', line 2: the study's name '../../evil' begins with a full stop."},
      {table("study\tn1\n/etc/passwd\t12\n"),
       "'kvo_table.txt', line 2: the study's name '/etc/passwd' holds a slash."},
      {table("study\tn1\n<b>&\x01\t12\n"),
       "'kvo_table.txt', line 2: the study's name '&lt;b&gt;&amp; ' holds a control character."},
      {table("study\tn1\n$(touch,x)\t12\n"), "'kvo_table.txt', line 2: there are 3 cells"},
      {table("study\tn1\n$(reboot)\t12\n"),
       "Study '$(reboot)' has no peaks file '$(reboot).peaks.txt' and no image"},
      {table("study\tn1\ncaf\xE9\t12\n"),
       "'kvo_table.txt', line 2: the study's name 'caf\xEF\xBF\xBD' is not valid UTF-8."},
      {table("study\tn1\n" + std::string(300, 'x') + "\t12\n"),
       "'kvo_table.txt', line 2: the study's name 'xxx"},
      {table("study\tn1\n" + std::string(50000, 'x') + "\t12\n"),
       "'kvo_table.txt', line 2: is longer than 49999 bytes."},
      {table(std::string("study\tn1\nA\0B\t12\n", 16)), "'kvo_table.txt' is not a text file."},
      {table("study\tn1\nA\xFF\t12\n"), "'kvo_table.txt' is not a text file."},
      {table("\xEF\xBB\xBFstudy\tn1\nA\t12\n"), "'kvo_table.txt' begins with a byte order mark"},
      {row("A"), "'kvo_table.txt', line 2: n1 of study 'A' is 'NA', not a whole number from 3"},
      {row("A\t2"), "'kvo_table.txt', line 2: n1 of study 'A' is '2', not a whole number from 3"},
      {row("A\t0"), "'kvo_table.txt', line 2: n1 of study 'A' is '0', not a whole number from 3"},
      {row("A\t-12"), "'kvo_table.txt', line 2: n1 of study 'A' is '-12', not a whole number"},
      {row("A\t12.5"), "'kvo_table.txt', line 2: n1 of study 'A' is '12.5', not a whole number"},
      {row("A\t1e308"), "'kvo_table.txt', line 2: n1 of study 'A' is '1e308', not a whole number"},
      {row("A\tnan"), "'kvo_table.txt', line 2: n1 of study 'A' is 'nan', which is no number."},
      {row("A\ttwelve"),
       "'kvo_table.txt', line 2: n1 of study 'A' is 'twelve', which is no number."},
      {row("A\t12\t1"),
       "'kvo_table.txt', line 2: n2 of study 'A' is '1', not a whole number from 2"},
      {row("A\t1\t12"),
       "'kvo_table.txt', line 2: n1 of study 'A' is '1', not a whole number from 2"},
      {row("A\t12\t0"),
       "'kvo_table.txt', line 2: n2 of study 'A' is '0', not a whole number from 2"},
      {row("A\t12\t12\t-3"), "'kvo_table.txt', line 2: threshold_t of study 'A' is '-3', not a"},
      {row("A\t12\t12\thigh"),
       "'kvo_table.txt', line 2: threshold_t of study 'A' is 'high', which"},
      {[] { fs::remove("kvo_table.txt"), fs::create_directory("kvo_table.txt"); },
       "'kvo_table.txt' is not a file."},
      {[] { fs::remove("kvo_table.txt"), mkfifo("kvo_table.txt", 0644); },
       "'kvo_table.txt' is not a file."},
      {[] { fs::remove("kvo_table.txt"), fs::create_symlink("/dev/zero", "kvo_table.txt"); },
       "'kvo_table.txt' is not a file."},
      {[] { fs::remove("kvo_table.txt"), fs::create_symlink("kvo_table.txt", "kvo_table.txt"); },
       "'kvo_table.txt' cannot be opened: Too many levels of symbolic links."},

      {removed("A.peaks.txt"),
       "Study 'A' has no peaks file 'A.peaks.txt' and no image 'A.nii.gz'."},
      {[] { fs::rename("A.peaks.txt", "A.nii.gz"); }, "'A.nii.gz': is not a NIfTI-1 image."},
      {[] { write_text("A.nii.gz", ""); },
       "Study 'A' has both a peaks file 'A.peaks.txt' and an image"},
      {peaks(""), "'A.peaks.txt' has no line '# space: MNI' or '# space: Talairach'."},
      {peaks("24 -14 6 4.1\n"), "'A.peaks.txt' has no line '# space: MNI'"},
      {peaks("# space: MNI152\n"),
       "'A.peaks.txt', line 1: the space 'MNI152' is neither MNI nor Talairach."},
      {peaks("# space:\n"), "'A.peaks.txt', line 1: the space '' is neither MNI nor Talairach."},
      {peaks("# space: MNI\n# space: Talairach\n"),
       "'A.peaks.txt', line 2: a second space is given."},
      {peaks(std::string("# space: MNI\n\0", 14)), "'A.peaks.txt' is not a text file."},
      {peak("24 -14 6"), "'A.peaks.txt', line 3: there are 3 numbers; a peak has four: x y z t."},
      {peak("24 -14 6 4.1 7"), "'A.peaks.txt', line 3: there are 5 numbers; a peak has four"},
      {peak("24 -14 6 4,1"), "'A.peaks.txt', line 3: commas stand neither between all numbers"},
      {peak("1,5 -14 6"), "'A.peaks.txt', line 3: commas stand neither between all numbers"},
      {peak("1,5 -14,5 6,5 4,1"), "'A.peaks.txt', line 3: commas stand neither between"},
      {peak("24 -14 x 4.1"), "'A.peaks.txt', line 3: the coordinate 'x' is not a number of mm"},
      {peak("24 nan 6 4.1"), "'A.peaks.txt', line 3: the coordinate 'nan' is not a number of mm"},
      {peak("1e308 0 6 4.1"),
       "'A.peaks.txt', line 3: the coordinate '1e308' is not a number of mm"},
      {peak("240 -14 6 4.1"), "'A.peaks.txt', line 3: the coordinate '240' is not a number of mm"},
      {peak("24 -14 6 <b>"), "'A.peaks.txt', line 3: the height '&lt;b&gt;' is neither a t value"},
      {peak("24 -14 6 1e308"), "'A.peaks.txt', line 3: the height '1e308' is neither a t value"},
      {peak("24 -14 6 -inf"), "'A.peaks.txt', line 3: the height '-inf' is neither a t value"},
      {peak("24 -14 6 0x10"), "'A.peaks.txt', line 3: the height '0x10' is neither a t value"},
      {peaks("# space: MNI\n" +
             [] {
               std::string many;
               for (int i = 0; i < 5001; ++i) many += "24 -14 6 4.1\n";
               return many;
             }()),
       "'A.peaks.txt', line 5002: there are more than 5000 peaks."},
  };
  const Installation engine;
  for (const Case& c : cases) {
    for (const auto& entry : fs::directory_iterator(".")) fs::remove_all(entry);
    write_good_folder();
    expect_refused(engine, "pp gray_matter, 0.0, 20, gray_matter, 1", c);
  }
}

TEST(BadInput, OfTheInstallationIsRefused) {
  const Installation engine;
  const auto mask = [&] { return engine.share() / "mask_gray_matter.nii.gz"; };
  const auto with_mask = [&](const std::function<void(Image&)>& change) {
    return [&, change] {
      Image image;
      image.grid = mni_grid();
      image.values.assign(image.grid.voxels(), 1);
      change(image);
      write_image(mask(), image);
    };
  };
  const std::string shared = std::string("'").append(mask()).append("'");
  const std::string no_voxel = shared + " has no voxel above 0.";
  const std::string other_grid =
      shared + " is not on the MNI grid of 91 x 109 x 91 voxels of 2 mm.";
  const std::string no_image = shared + ": is not a NIfTI-1 image";
  const std::string short_image = shared + ": ";
  const Case cases[] = {
      {[&] { write_text(mask(), "no image"); }, no_image.c_str()},
      {with_mask([](Image& image) { image.values.assign(image.values.size(), 0); }),
       no_voxel.c_str()},
      {with_mask([](Image& image) { image.grid.to_mm(0, 3) = -88; }), other_grid.c_str()},
      {[&] {
         with_mask([](Image&) {})();
         fs::resize_file(mask(), fs::file_size(mask()) / 2);
       },
       short_image.c_str()},
      {[&] { fs::remove(mask()); },
       "There is no mask 'gray_matter': neither the share folder nor the working folder has "
       "'mask_gray_matter.nii.gz'."},
  };
  write_good_folder();
  for (const Case& c : cases) expect_refused(engine, "pp gray_matter, 0, 20, gray_matter, 1", c);
}

TEST(BadInput, OfTheMeanIsRefused) {
  const auto line = [](const std::string& key, const std::string& value) {
    return [key, value] {
      std::string text = read_text("kvo_pp.txt");
      const std::size_t at = text.find(key + " = ");
      ASSERT_NE(at, std::string::npos) << key;
      text.replace(at, text.find('\n', at) - at, value);
      write_text("kvo_pp.txt", text);
    };
  };
  const std::string again = ". Please run preprocessing again.";
  const Case cases[] = {
      {removed("kvo_pp.txt"), "No maps found. Please run preprocessing and try again."},
      {[] { write_text("kvo_pp.txt", ""); }, "'kvo_pp.txt' has no line 'template'"},
      {line("seed", "seed = x"),
       "'kvo_pp.txt': 'x' cannot be the seed. Please run preprocessing again."},
      {line("fwhm", "fwhm = -1"), "'kvo_pp.txt': '-1' cannot be the fwhm. Please"},
      {line("randomizations", "randomizations = 1e300"),
       "'kvo_pp.txt': '1e300' cannot be the randomizations. Please"},
      {line("mask", "mask = ../x"), "'kvo_pp.txt': '../x' cannot be the mask. Please"},
      {line("mask", "mask = other"), "There is no mask 'other'"},
      {line("seed", "nonsense"), "'kvo_pp.txt', line 6: there is no ' = '."},
      {line("checksum of A.peaks.txt", "x = y"),
       "'A.peaks.txt' has been added since preprocessing. Please run"},
      {line("checksum of mask_gray_matter.nii.gz", "x = y"),
       "The mask 'gray_matter' has changed since preprocessing."},
      {line("study A", "x = y"),
       "Study 'A' has not been preprocessed. Please run preprocessing again."},
      {peak("24 -14 6 4.2"),
       "'A.peaks.txt' has changed since preprocessing. Please run preprocessing"},
      {removed("A.peaks.txt"),
       "Study 'A' has no peaks file 'A.peaks.txt' and no image 'A.nii.gz'."},
      {row("A\t13\t14\tNA"),
       "The table's line of study 'A' has changed (from n1 12, n2 14, threshold_t NA to n1 13, n2 "
       "14, threshold_t NA) since preprocessing."},
      {[] { write_text("kvo_table.txt", good_table + "C\t12\n"); },
       "Study 'C' has not been preprocessed"},
      {table("study\tn1\tn2\tthreshold_t\nA\t12\t14\tNA\nMyMean_z\t12\n"),
       "The name 'MyMean' cannot be used: its map 'MyMean_z.nii.gz' would be the image of study"},
  };
  const Case read_cases[] = {
      {removed("pp/A_g.nii.gz"), "'pp/A_g.nii.gz': cannot be opened: No such file"},
      {removed("pp/B_var.nii.gz"), "'pp/B_var.nii.gz': cannot be opened: No such file"},
      {[] { fs::resize_file("pp/A_g.nii.gz", 1000); }, "'pp/A_g.nii.gz': "},
      {[] {
         fs::copy_file("pp/A_g.nii.gz", "pp/B_var.nii.gz", fs::copy_options::overwrite_existing);
       },
       "'pp/B_var.nii.gz' has a variance in the mask that is not above 0."},
      {[] { fs::create_directory("MyMean_z.nii.gz"); },
       "'MyMean_z.nii.gz' cannot be replaced: it is a folder."},
      {[] { fs::remove("kvo_maps.txt"), fs::create_directory("kvo_maps.txt"); },
       "'kvo_maps.txt' is not a file."},
  };
  struct CommandCase {
    const char *command, *reason;
  };
  const CommandCase command_cases[] = {
      {"MyMean = mean male", "'kvo_table.txt' has no variable 'male'."},
      {"MyMean = mean study",
       "'kvo_table.txt', line 2: study of study 'A' is 'A', which is no number."},
      {"MyMean = mean none", "No study has 'none' = 1."},
      {"mask_x = mean", "The name 'mask_x' cannot be used: names that begin with 'mask_' are kept"},
      {"x_n = mean", "The name 'x_n' cannot be used: names that end with '_n' are kept"},
      {"<i> = mean male", "'kvo_table.txt' has no variable 'male'."},
      {"x = mean <i>", "'kvo_table.txt' has no variable '&lt;i&gt;'."},
      {"pp gray_matter, 0.5, 20, gray_matter, 1",
       "There is no correlation template 'gray_matter': neither the share folder nor the working "
       "folder has 'cor_gray_matter.nii.gz'."},
      {"pp gray_matter, 0, 20, white_matter, 1", "There is no mask 'white_matter'"},
      {"nonsense <b>", "'nonsense' is not a command."},
  };
  const Installation engine;
  const auto prepare = [&] {
    for (const auto& entry : fs::directory_iterator(".")) fs::remove_all(entry);
    write_good_folder();
    ASSERT_EQ(engine.run("pp gray_matter, 0, 20, gray_matter, 1").closing(), "d");
  };
  for (const Case& c : cases) {
    prepare();
    expect_refused(engine, "MyMean = mean", c);
  }
  for (const Case& c : read_cases) {
    prepare();
    c.spoil();
    const auto before = snapshot();
    const Outcome outcome = engine.run("MyMean = mean");
    EXPECT_EQ(outcome.status, 1) << c.reason;
    EXPECT_THAT(outcome.closing(), testing::StartsWith(std::string("WARNING: ") + c.reason));
    EXPECT_EQ(snapshot(), before) << c.reason;
  }
  prepare();
  write_text(
      "kvo_table.txt",
      "study\tn1\tn2\tthreshold_t\tfemale\tnone\nA\t12\t14\tNA\t1\t0\nB\t20\tNA\t3.1\t0\tNA\n");
  for (const CommandCase& c : command_cases) expect_refused(engine, c.command, {[] {}, c.reason});
}

}  // namespace
