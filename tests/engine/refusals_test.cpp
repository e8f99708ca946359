// What users, editors and strangers can leave in a folder, and commands that do not fit it: each is
// refused with one line that says where and why, and the folder stays as it is.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <functional>
#include <limits>

#include "runner.h"

using namespace kvo::images;

namespace {

namespace fs = std::filesystem;
using Change = std::function<void()>;

struct Case {
  Change spoil;
  std::string reason;  ///< how the closing line begins, after "WARNING: "
};

struct Command_case {
  std::string command;
  Change spoil;
  std::string reason;
};

const std::string good_table =
    "study\tn1\tn2\tthreshold_t\tfemale\tnone\nA\t12\t14\tNA\t1\t0\nB\t20\tNA\t3.1\t0\tNA\n";
const std::string good_peaks = "# space: MNI\n24 -14 6 4.1\n30 -10 4 -2.2\n";

void write_good_folder() {
  write_text("kvo_table.txt", good_table);
  write_text("A.peaks.txt", good_peaks);
  write_text("B.peaks.txt", "# space: Talairach\n22 -16 4 p\n");
}

Change text(const std::string& file, const std::string& content) {
  return [=] { write_text(file, content); };
}
Change table(const std::string& content) {
  return text("kvo_table.txt", content);
}
Change row(const std::string& row) {
  return table("study\tn1\tn2\tthreshold_t\n" + row + "\nB\t20\n");
}
Change peaks(const std::string& content) {
  return text("A.peaks.txt", content);
}
Change peak(const std::string& line) {
  return peaks("# space: MNI\n\n" + line + "\n");
}
Change removed(const std::string& path) {
  return [=] { fs::remove_all(path); };
}
Change folder(const std::string& path) {
  return [=] {
    fs::remove(path);
    fs::create_directory(path);
  };
}
Change link(const std::string& target, const std::string& path) {
  return [=] {
    fs::remove_all(path);
    fs::create_symlink(target, path);
  };
}
Change loop(const std::string& path) {
  return link(path, path);
}
Change cut(const std::string& path, double share) {
  return [=] { fs::resize_file(path, std::uintmax_t(double(fs::file_size(path)) * share)); };
}
/// Changes an image of the installation or the folder.
Change image(const std::string& path, const std::function<void(Image&)>& change) {
  return [=] {
    Image changed = read_image(path);
    change(changed);
    write_image(path, changed);
  };
}
Change off_the_grid(const std::string& path) {
  return image(path, [](Image& image) { image.grid.to_mm(0, 3) += 2; });
}
/// With another value in the second row of the grid's third voxel.
Change with_value(const std::string& path, float value) {
  return image(path, [=](Image& image) { image.values[mni_grid().index(0, 1, 2)] = value; });
}
Change all_values(const std::string& path, float value) {
  return image(path, [=](Image& image) { image.values.assign(image.values.size(), value); });
}
const Change nothing = [] {};

/// What can be seen before anything is computed is all that is said.
void expect_refused_at_once(const Installation& engine, const std::string& command,
                            const std::string& reason) {
  EXPECT_EQ(engine.expect_refused(command, reason).lines.size(), 1U) << reason;
}

std::string many_peaks() {
  std::string many = "# space: MNI\n";
  for (int i = 0; i < 5001; ++i) many += "24 -14 6 4.1\n";
  return many;
}

std::string wide_table() {
  std::string wide = "study n1" + std::string(20000, '\t') + "x\n";
  for (int s = 0; s < 300; ++s) wide.append("s").append(std::to_string(s)).append(" 20\n");
  return wide;
}

TEST(Refusal, OfPreprocessing) {
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
      // A byte order mark is no part of the first name.
      {table("\xEF\xBB\xBFstudy\tn1\nA\t2\n"),
       "'kvo_table.txt', line 2: n1 of study 'A' is '2', not a whole number from 3"},
      {[] { fs::resize_file("kvo_table.txt", (std::uintmax_t{64} << 20) + 1); },
       "'kvo_table.txt' is larger than 64 MiB."},
      {row("A"), "'kvo_table.txt', line 2: n1 of study 'A' is 'NA', not a whole number from 3"},
      {row("A\t2"), "'kvo_table.txt', line 2: n1 of study 'A' is '2', not a whole number from 3"},
      {row("A\t0"), "'kvo_table.txt', line 2: n1 of study 'A' is '0', not a whole number from 3"},
      {row("A\t-12"), "'kvo_table.txt', line 2: n1 of study 'A' is '-12', not a whole number"},
      {row("A\t12.5"), "'kvo_table.txt', line 2: n1 of study 'A' is '12.5', not a whole number"},
      {row("A\t1e308"), "'kvo_table.txt', line 2: n1 of study 'A' is '1e308', not a whole number"},
      {row("A\tnan"),
       "'kvo_table.txt', line 2: n1 of study 'A' is 'nan', not a whole number from 3 to"},
      {row("A\ttwelve"),
       "'kvo_table.txt', line 2: n1 of study 'A' is 'twelve', not a whole number from 3 to"},
      {row("A\t12\t1"),
       "'kvo_table.txt', line 2: n2 of study 'A' is '1', not a whole number from 2"},
      {row("A\t1\t12"),
       "'kvo_table.txt', line 2: n1 of study 'A' is '1', not a whole number from 2"},
      {row("A\t12\t0"),
       "'kvo_table.txt', line 2: n2 of study 'A' is '0', not a whole number from 2"},
      {row("A\t12\t12\t-3"), "'kvo_table.txt', line 2: threshold_t of study 'A' is '-3', not a"},
      {row("A\t12\t12\thigh"),
       "'kvo_table.txt', line 2: threshold_t of study 'A' is 'high', not a number above 0"},
      {folder("kvo_table.txt"), "'kvo_table.txt' is not a regular file."},
      {[] { fs::remove("kvo_table.txt"), mkfifo("kvo_table.txt", 0644); },
       "'kvo_table.txt' is not a regular file."},
      {link("/dev/zero", "kvo_table.txt"), "'kvo_table.txt' is not a regular file."},
      {loop("kvo_table.txt"), "'kvo_table.txt' cannot be opened: Too many levels of symbolic"},
      {table(wide_table()), "'kvo_table.txt' is too large: 300 studies with 20002 columns."},

      {removed("A.peaks.txt"),
       "Study 'A' has no peaks file 'A.peaks.txt' and no image 'A.nii.gz'."},
      {[] { fs::rename("A.peaks.txt", "A.nii.gz"); }, "'A.nii.gz': is not a NIfTI-1 image."},
      {text("A.nii.gz", ""), "Study 'A' has both a peaks file 'A.peaks.txt' and an image"},
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
      {peaks(many_peaks()), "'A.peaks.txt', line 5002: there are more than 5000 peaks."},
      {link(".", "A.peaks.txt"), "'A.peaks.txt' is not a regular file."},
      {link("/dev/zero", "A.peaks.txt"), "'A.peaks.txt' is not a regular file."},
      {link("nowhere", "A.peaks.txt"), "Study 'A' has no peaks file"},
      {loop("A.peaks.txt"), "Study 'A' has no peaks file"},
  };
  const Installation engine;
  write_good_folder();
  engine.save();
  for (const Case& c : cases) {
    engine.restore();
    c.spoil();
    expect_refused_at_once(engine, "pp gray_matter, 0.0, 20, gray_matter, 1", c.reason);
  }
}

TEST(Refusal, OfAnInstallationThatIsNotAsItShouldBe) {
  const Installation engine;
  const std::string mask = engine.share() / "mask_gray_matter.nii.gz";
  const std::string tissue = engine.share() / "cor_gray_matter.nii.gz";
  write_good_folder();
  const std::string command = "pp gray_matter, 0.5, 20, gray_matter, 1";
  const Case cases[] = {
      {nothing,
       "There is no correlation template 'gray_matter': neither the share folder nor the working "
       "folder has 'cor_gray_matter.nii.gz'."},
      {[&] { write_image(tissue, image_of(std::numeric_limits<float>::quiet_NaN())); },
       "'" + tissue + "' has values in the mask that are not finite"},
      {[&] {
         write_image(tissue, image_of(1));
         off_the_grid(tissue)();
       },
       "'" + tissue + "' is not on the MNI grid"},
      {cut(tissue, 0.4), "'" + tissue + "': ends early"},
      {[&] { write_image(mask, image_of(0)); }, "'" + mask + "' has no voxel above 0."},
      {off_the_grid(mask),
       "'" + mask + "' is not on the MNI grid of 91 x 109 x 91 voxels of 2 mm."},
      {cut(mask, 0.5), "'" + mask + "': ends early"},
      {text(mask, "no image"), "'" + mask + "': is not a NIfTI-1 image"},
      {removed(mask),
       "There is no mask 'gray_matter': neither the share folder nor the working folder has "
       "'mask_gray_matter.nii.gz'."},
  };
  for (const Case& c : cases) {
    c.spoil();
    expect_refused_at_once(engine, command, c.reason);
  }
  write_mask(mask, box_voxels());
  write_image(tissue, image_of(1));
  engine.must_run({command.c_str()});
  write_image(tissue, image_of(2));
  engine.expect_refused("M = mean", "The correlation template 'gray_matter' has changed");
}

TEST(Refusal, OfTheMeanAndOfItsCommand) {
  const auto line = [](const std::string& key, const std::string& value) {
    return [key, value] {
      std::string record = read_text("kvo_pp.txt");
      const std::size_t at = record.find(key + " = ");
      ASSERT_NE(at, std::string::npos) << key;
      record.replace(at, record.find('\n', at) - at, value);
      write_text("kvo_pp.txt", record);
    };
  };
  const Case cases[] = {
      {removed("kvo_pp.txt"), "No maps found. Please run preprocessing and try again."},
      {text("kvo_pp.txt", ""), "'kvo_pp.txt' has no line 'template'"},
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
      {table(good_table + "C\t12\n"), "Study 'C' has not been preprocessed"},
      {table("study\tn1\tn2\tthreshold_t\nA\t12\t14\tNA\nMyMean_z\t12\n"),
       "The name 'MyMean' cannot be used: its map 'MyMean_z.nii.gz' would be the image of study"},
      {link(".", "kvo_pp.txt"), "'kvo_pp.txt' is not a regular file."},
      {loop("kvo_pp.txt"), "No maps found."},
  };
  const Case cases_of_reading[] = {
      {removed("pp/A_g.nii.gz"), "'pp/A_g.nii.gz' cannot be opened: No such file"},
      {removed("pp/B_var.nii.gz"), "'pp/B_var.nii.gz' cannot be opened: No such file"},
      {link("/dev/zero", "pp/A_g.nii.gz"), "'pp/A_g.nii.gz' is not a regular file."},
      {link("..", "pp"), "'pp/A_g.nii.gz' cannot be opened: No such file"},
      {cut("pp/A_g.nii.gz", 0.2), "'pp/A_g.nii.gz' has changed since preprocessing. Please run"},
      {[] {
         fs::copy_file("pp/A_g.nii.gz", "pp/B_g.nii.gz", fs::copy_options::overwrite_existing);
       },
       "'pp/B_g.nii.gz' has changed since preprocessing. Please run preprocessing again."},
      {with_value("pp/A_var.nii.gz", 2), "'pp/A_var.nii.gz' has changed since preprocessing."},
      {line("checksum of pp/A_g.nii.gz", "x = y"),
       "'kvo_pp.txt' has no checksum of 'pp/A_g.nii.gz', as an earlier version leaves it. Please "
       "run"},
      {folder("MyMean_z.nii.gz"), "'MyMean_z.nii.gz' cannot be replaced: it is a folder."},
      {folder("kvo_maps.txt"), "'kvo_maps.txt' is not a regular file."},
  };
  const struct {
    const char *command, *reason;
  } commands[] = {
      {"MyMean = mean male", "'kvo_table.txt' has no variable 'male'."},
      {"MyMean = mean study",
       "'kvo_table.txt', line 2: study of study 'A' is 'A', which is no number."},
      {"MyMean = mean none", "No study has 'none' = 1."},
      {"mask_x = mean", "The name 'mask_x' cannot be used: names that begin with 'mask_' are kept"},
      {"x_n = mean", "The name 'x_n' cannot be used: names that end with '_n' are kept"},
      {"<i> = mean male", "'kvo_table.txt' has no variable 'male'."},
      {"x = mean <i>", "'kvo_table.txt' has no variable '&lt;i&gt;'."},
      {"pp gray_matter, 0, 20, white_matter, 1", "There is no mask 'white_matter'"},
      {"nonsense <b>", "'nonsense' is not a command."},
  };
  const Installation engine;
  write_good_folder();
  engine.must_run({"pp gray_matter, 0, 20, gray_matter, 1"});
  engine.save();
  for (const auto& [command, reason] : commands) expect_refused_at_once(engine, command, reason);
  for (const Case& c : cases) {
    engine.restore();
    c.spoil();
    expect_refused_at_once(engine, "MyMean = mean", c.reason);
  }
  for (const Case& c : cases_of_reading) {
    engine.restore();
    c.spoil();
    engine.expect_refused("MyMean = mean", c.reason);
  }
}

/// Whether a coefficient can be told from the others is a matter of the table alone.
TEST(Refusal, OfLinearModelsThatCannotBeFitted) {
  const struct {
    const char *model, *reason;
  } cases[] = {
      {"(none)", "'kvo_table.txt' has no variable '(none)'."},
      {"age + weight", "'kvo_table.txt' has no variable 'weight'."},
      {"age, weight", "'kvo_table.txt' has no variable 'weight'."},
      {"word", "'kvo_table.txt', line 4: word of study 'study2' is 'low', which is no number."},
      {"study",
       "'kvo_table.txt', line 2: study of study 'study0' is 'study0', which is no number."},
      {"age + dose + age", "The term 'age' is in the model twice."},
      {"n1 + age + dose + few + same", "The term 'same' is one too many: a model has at most 4"},
      {"age + same", "The term 'same' has the same value in all the studies."},
      {"age, one",
       "The term 'age' makes the model too large: with 1 term it needs at least 3 studies "
       "that have all values, and there is 1."},
      {"dose + few",
       "The term 'few' makes the model too large: with 2 terms it needs at least 4 "
       "studies that have all values, and there are 3."},
      {"nearly", "The term 'nearly' says nothing"},
      {"age + dose + sum",
       "The term 'sum' says nothing that the terms before it do not say already."},
      {"sum + n1 + age + dose", "The term 'dose' says nothing that the terms before it do not"},
      {"huge", "The term 'huge' has values that are too large. Please give them in another unit."},
      {"age + tiny", "The term 'tiny' has values that are too close together. Please give them in"},
  };
  const Installation engine;
  write_studies(10);
  write_text("kvo_table.txt", table_with_variables);
  engine.must_run({"pp gray_matter, 0, 10, gray_matter, 1"});
  for (const auto& [model, reason] : cases)
    expect_refused_at_once(engine, std::string("x = lm ") + model, reason);
}

TEST(Refusal, OfEveryOtherCommand) {
  const Installation engine;
  write_image(engine.share() / "atlas_aal_frw.nii.gz", image_of(41));
  write_studies(4);
  engine.must_run({"pp gray_matter, 0, 10, gray_matter, 20", "Map = mean", "Map2 = mean",
                   "Sphere = mask coordinate, 26, -12, 4"});
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const std::string header = "study n1 n2 mean1 sd1 mean2 sd2 age group\n";
  const std::string three = "a 20 20 1 1 2 3 5 1\nb 20 20 1 1 2 3 6 1\nc 20 20 1 1 2 3 8 1\n";
  const std::string label = "x = mask label, 41", globals = "x = globals";
  const std::string extract = "extract Sphere", threshold = "threshold Map, p, 0.4, 0, 1";
  const std::string multi = "multi Map, Map2, 0.4, 0.4, 1, 0, 0, 0.1";
  const std::string result = "Map_z_p_0.40000_0.000_1";
  const std::string elsewhere =
      "There is already a '" + result + ".nii.gz' that was made elsewhere.";
  const std::string sphere = "mask_Sphere.nii.gz";
  const Command_case cases[] = {
      {"x = mask label, 118", nothing,
       "The atlas has no voxel of region 118, 'Left anterior thalamic projections'."},
      {"x = mask label, 500", nothing, "The atlas has no voxel of region 500."},
      {"x = mask coordinate, 32000, 0, 0", nothing,
       "The coordinate 32000, 0, 0 lies outside of the images: no voxel is within 10 mm of it."},
      {"gray_matter = mask label, 41", nothing,
       "The name 'gray_matter' cannot be used: the installation has a mask of that name."},
      {label, text("mask_x.nii.gz", "a user's own"),
       "The name 'x' cannot be used: there is already a 'mask_x.nii.gz' that was made elsewhere."},
      {label, link("nowhere", "mask_x.nii.gz"),
       "The name 'x' cannot be used: there is already a 'mask_x.nii.gz' that was made"},
      {label, table("study n1\nmask_x 20\n"),
       "The name 'x' cannot be used: 'mask_x.nii.gz' would be the image of study 'mask_x'."},

      {"extract none", nothing, "There is no mask 'none': neither the share folder nor"},
      {extract, off_the_grid(sphere), "'mask_Sphere.nii.gz' is not on the MNI grid of 91 x 109 x"},
      {extract, link("/", sphere), "'mask_Sphere.nii.gz': is not a regular file."},
      {extract, loop(sphere), "There is no mask 'Sphere'"},
      {extract, cut(sphere, 0.2), "'mask_Sphere.nii.gz': ends early"},
      {extract, cut(sphere, 0), "'mask_Sphere.nii.gz': is not a NIfTI-1 image"},
      {extract,
       [] {
         write_mask("mask_Sphere.nii.gz", {{-60, 0, 0}});
       },
       "The mask 'Sphere' has no voxel in common with the mask 'gray_matter' that the maps"},
      {extract, removed("kvo_pp.txt"), "No maps found. Please run preprocessing and try again."},
      {extract, text("study1.peaks.txt", "# space: MNI\n"),
       "'study1.peaks.txt' has changed since preprocessing. Please run"},

      {globals, nothing, "'kvo_table.txt' has no variable 'mean1'."},
      {globals, table("study n1 mean1 sd1\na 20 5 1\nb 20 5 0\n"),
       "'kvo_table.txt', line 3: sd1 of study 'b' is '0', not a number above 0."},
      {globals, table(header + "a 20 20 1 1 2 -3 5 1\n"),
       "'kvo_table.txt', line 2: sd2 of study 'a' is '-3', not a number above 0."},
      {globals, table("study n1 mean1 sd1\na 20 1e300 1e-300\n"),
       "'kvo_table.txt', line 2: the means and standard deviations of 'a' give no effect size."},
      {globals, table("study n1 mean1 sd1\na 20 NA 1\nb 20 5 NA\n"),
       "No study has a value of each of mean1 and sd1."},
      {globals, table("study n1 n2 mean1 sd1\na 20 20 1 1\n"),
       "'kvo_table.txt' has no variable 'mean2'."},
      {globals, table(wide_table()), "'kvo_table.txt' is too large"},
      {globals + " + age + age", table(header + three + "d 20 20 1 1 2 3 9 1\n"),
       "The term 'age' is in the model twice."},
      {globals + " group", table(header + three),
       "The term 'group' has the same value in all the studies."},

      {std::string(199, 'x') + " = lm n1", nothing,
       "The name '" + std::string(199, 'x') + "_0' is"},

      {threshold, removed("kvo_pp.txt"), "No maps found. Please run preprocessing"},
      {"threshold Mop, p, 0.4, 0, 1", nothing, "There is no map 'Mop'. The maps are: Map, Map2."},
      {"threshold <b>, p, 0.4, 0, 1", nothing, "There is no map '&lt;b&gt;'."},
      {"threshold Map_n, p, 0.4, 0, 1", nothing, "'Map_n' is the negative tail of map 'Map'."},
      {threshold, removed("kvo_maps.txt"), "There is no map 'Map'. Please estimate maps"},
      {threshold, link("nowhere", "kvo_maps.txt"), "There is no map 'Map'."},
      {threshold, link("/", "kvo_maps.txt"), "'kvo_maps.txt' is not a regular file."},
      {threshold, link("/", "kvo_analyses.txt"), "'kvo_analyses.txt' is not a regular file."},
      {threshold, text("kvo_analyses.txt", "map\nMap 1e300 1 x\n"),
       "'kvo_analyses.txt', line 2: there are no numbers of studies and participants"},
      {threshold, removed("Map_z.nii.gz"), "'Map_z.nii.gz': cannot be opened: No such file"},
      {threshold, loop("Map_z.nii.gz"), "'Map_z.nii.gz': cannot be opened: Too many levels"},
      {threshold, cut("Map_z.nii.gz", 0.5), "'Map_z.nii.gz': ends early"},
      {threshold, off_the_grid("Map_z.nii.gz"), "'Map_z.nii.gz' is not on the MNI grid"},
      {threshold, all_values("Map_z.nii.gz", nan), "'Map_z.nii.gz' has values in the mask that"},
      {threshold, removed("Map_p.nii.gz"), "'Map_p.nii.gz': cannot be opened: No such file"},
      {threshold,
       image("Map_p.nii.gz",
             [](Image& image) {
               image.grid.size[0] = 50;
               image.values.resize(image.grid.voxels());
             }),
       "'Map_p.nii.gz' is not on the MNI grid"},
      {threshold, with_value("Map_n_p.nii.gz", 1.5F),
       "'Map_n_p.nii.gz': the value 1.5 at MNI -90,-124,-68 is no p value"},
      {threshold, with_value("Map_pFWE.nii.gz", -0.5F), "'Map_pFWE.nii.gz': the value -0.5"},
      {threshold, [] { fs::remove("Map_n_p.nii.gz"), fs::remove("kvo_nd.txt"); },
       "'kvo_nd.txt' cannot be opened"},
      {threshold,
       [] { fs::remove("Map_n_p.nii.gz"), write_text("kvo_nd.txt", "name values\nMap many\n"); },
       "'kvo_nd.txt', line 2: there is no number of values."},
      {threshold, text(result + ".nii.gz", "a user's own"), elsewhere},
      {threshold, loop(result + ".nii.gz"), elsewhere},
      {threshold, link("Map_z.nii.gz", result + ".nii.gz"), elsewhere},
      {threshold, folder(result + ".csv"),
       "'" + result + ".csv' cannot be replaced: it is a folder."},

      {"multi Map, Map, 0.4, 0.4, 1, 0, 0, 0.1", nothing,
       "The two meta-analyses have the same name 'Map'."},
      {"multi Map, C, 0.4, 0.4, 1, 0, 0, 0.1", nothing,
       "'C_p.nii.gz': cannot be opened: No such file"},
      {"multi mask_a, Map, 0.4, 0.4, 1, 0, 0, 0.1", nothing, "The name 'mask_a' cannot be used"},
      {"multi " + std::string(50, 'y') + ", " + std::string(200, 'x') + ", 0.4, 0.4, 1, 0, 0, 0.1",
       nothing, "The name of the result"},
      {multi, link("/", "Map2_p.nii.gz"), "'Map2_p.nii.gz': is not a regular file."},
      {multi, with_value("Map2_p.nii.gz", 0), "'Map2_p.nii.gz': the value 0 at MNI -90,-124,-68"},
      {multi, with_value("Map2_p.nii.gz", nan), "'Map2_p.nii.gz': the value nan at MNI"},
      {multi, off_the_grid("Map2_p.nii.gz"), "'Map2_p.nii.gz' is not on the MNI grid"},
      {multi, all_values("Map2_p.nii.gz", 1),
       "'Map_p.nii.gz' and 'Map2_p.nii.gz' have no voxel in common"},
      {multi, cut("Map_p.nii.gz", 0.5), "'Map_p.nii.gz': ends early"},
  };
  engine.save();
  for (const auto& [command, spoil, reason] : cases) {
    engine.restore();
    spoil();
    engine.expect_refused(command, reason);
  }
}

}  // namespace
