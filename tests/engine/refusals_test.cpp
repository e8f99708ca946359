// What users, editors and strangers can leave in a folder, and commands that do not fit it: each is
// refused with one line that says where and why, and the folder stays as it is. refusals.tsv has
// the cases.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <zlib.h>

#include <sstream>

#include "runner.h"
#include "table.h"
#include "workspace/files/study_table.h"

using namespace kvo::images;

namespace {

namespace fs = std::filesystem;

void compress(const std::string& path, const std::string& bytes) {
  const Q_gz_file file(gzopen(path.c_str(), "wb1"));
  gzwrite(file.get(), bytes.data(), unsigned(bytes.size()));
}

/// Replaces numbers in the header of a compressed image: their place, type and values.
void patch(const std::string& path, const Cells& how) {
  std::string bytes(std::size_t(1) << 23, '\0');
  {
    const Q_gz_file file(gzopen(path.c_str(), "rb"));
    bytes.resize(std::size_t(gzread(file.get(), bytes.data(), unsigned(bytes.size()))));
  }
  char* to = bytes.data() + std::stoul(how[0]);
  std::istringstream numbers(how[2]);
  for (std::string number; numbers >> number;)
    if (how[1] == "f4") {
      const float value = std::stof(number);
      to = std::copy_n(reinterpret_cast<const char*>(&value), sizeof value, to);
    } else {
      const auto value = std::int16_t(std::stoi(number));
      to = std::copy_n(reinterpret_cast<const char*>(&value), sizeof value, to);
    }
  compress(path, bytes);
}

/// Gives the second voxel of a row of the grid, or all, another value.
void set_values(const std::string& path, float value, bool all) {
  Image image = read_image(path);
  if (all) image.values.assign(image.values.size(), value);
  image.values[mni_grid().index(0, 1, 2)] = value;
  write_image(path, image);
}

/// Puts zeros behind a compressed image, which take little room.
void append_zeros(const std::string& path, int mebibytes) {
  compress("zeros", std::string(1 << 20, '\0'));
  std::ofstream file(path, std::ios::app);
  for (const std::string zeros = read_text("zeros"); mebibytes > 0; --mebibytes) file << zeros;
  fs::remove("zeros");
}

void replace_record(const std::string& key, const std::string& line) {
  std::string record = read_text("kvo_pp.txt");
  const std::size_t at = record.find(key + " = ");
  ASSERT_NE(at, std::string::npos) << key;
  write_text("kvo_pp.txt", record.replace(at, record.find('\n', at) - at, line));
}

/// Does what a line of the table says: a verb, mostly a path, and the rest.
void change(const Installation& engine, const std::string& text) {
  const Cells verb = split(text, " ", 2), file = split(verb[1], " ", 2);
  const std::string &what = verb[0], &all = verb[1], &path = file[0], &rest = file.back();
  if (what == "write") {
    write_text(path, rest);
  } else if (what == "table") {
    write_text("kvo_table.txt", all + "\n");
  } else if (what == "row") {
    write_text("kvo_table.txt", "study\tn1\tn2\tthreshold_t\n" + all + "\nB\t20\n");
  } else if (what == "peak") {
    write_text("A.peaks.txt", "# space: MNI\n\n" + all + "\n");
  } else if (what == "image") {
    write_t_image(path, std::stoi(rest));
  } else if (what == "record") {
    replace_record(split(all, " / ", 2)[0], split(all, " / ", 2)[1]);
  } else if (what == "run") {
    engine.must_run({all.c_str()});
  } else if (what == "size") {
    fs::resize_file(path, std::stoul(rest));
  } else if (what == "cut") {
    fs::resize_file(path, std::uintmax_t(double(fs::file_size(path)) * std::stod(rest)));
  } else if (what == "patch") {
    patch(path, split(rest, " ", 3));
  } else if (what == "value" || what == "fill") {
    set_values(path, std::stof(rest), what == "fill");
  } else if (what == "zeros") {
    append_zeros(path, std::stoi(rest));
  } else if (what == "link") {
    fs::remove_all(rest);
    fs::create_symlink(path, rest);
  } else {
    fs::remove_all(path);
    if (what == "folder") fs::create_directory(path);
    if (what == "fifo") mkfifo(path.c_str(), 0644);
  }
}

/// Leaves the means of three studies without one each, as the front end has them made.
void run_jackknife(const Installation& engine) {
  const std::string before = read_text("kvo_table.txt");
  for (std::size_t left_out = 0; left_out < 3; ++left_out) {
    const Cells lines = split(before, "\n", 4);
    std::string table = lines[0] + "\t" + KVO_JACKKNIFE_VARIABLE + "\n";
    for (std::size_t s = 0; s < 3; ++s)
      table +=
          lines[s + 1].substr(0, lines[s + 1].find('\n')) + (s == left_out ? "\tNA\n" : "\t1\n");
    write_text("kvo_table.txt", table);
    const std::string map = "MapJKstudy" + std::to_string(left_out);
    engine.must_run({(map + " = mean " + KVO_JACKKNIFE_VARIABLE).c_str()});
  }
  write_text("kvo_table.txt", before);
}

void set_up(const Installation& engine, const std::string& name) {
  write_text("kvo_table.txt", "study n1 n2 threshold_t none\nA 12 14 NA 0\nB 20 NA 3.1 NA\n");
  write_text("A.peaks.txt", "# space: MNI\n24 -14 6 4.1\n30 -10 4 -2.1\n");
  write_text("B.peaks.txt", "# space: Talairach\n22 -16 4 p\n");
  write_image(engine.share() / "atlas_aal_frw.nii.gz", image_of(41));
  write_image(engine.share() / "cor_gray_matter.nii.gz", image_of(1));
  if (name == "image") {
    fs::remove("A.peaks.txt");
    write_t_image("A", 1);
  } else if (name == "tissue") {
    engine.must_run({"pp gray_matter, 0.5, 20, gray_matter, 1"});
  } else if (name == "done") {
    engine.must_run({"pp gray_matter, 0, 20, gray_matter, 1"});
  } else if (name == "model") {
    write_studies(10);
    write_text("kvo_table.txt", table_with_variables);
    engine.must_run({"pp gray_matter, 0, 10, gray_matter, 1"});
  } else if (name == "maps") {
    write_studies(4);
    engine.must_run({"pp gray_matter, 0, 10, gray_matter, 20", "Map = mean", "Map2 = mean",
                     "Sphere = mask coordinate, 26, -12, 4"});
  } else if (name == "jackknife") {
    write_studies(3);
    engine.must_run({"pp gray_matter, 0, 10, gray_matter, 1", "Map = mean"});
    run_jackknife(engine);
    engine.must_run({"threshold Map, p, 0.4, 0, 1"});
  }
}

class Refusal : public testing::TestWithParam<const char*> {};

TEST_P(Refusal, SaysWhyAndLeavesTheFolderAsItIs) {
  const Installation engine;
  set_up(engine, GetParam());
  engine.save();
  Cells section;
  int cases = 0;
  for (Cells& row : read_table(KVO_REFUSALS, 3)) {
    if (row[0].starts_with("@")) section = row;
    if (section[0].substr(1) != GetParam() || row[0].starts_with("@")) continue;
    ++cases;
    for (std::string& cell : row)
      if (const std::size_t at = cell.find("SHARE"); at != std::string::npos)
        cell.replace(at, 5, engine.share().string());
    SCOPED_TRACE(row[0] + ": " + row[1]);
    engine.restore();
    for (const std::string& each : split(row[1], " ; ", 10))
      if (!each.empty()) change(engine, each);
    const bool at_once = !row[2].starts_with("...");
    const Outcome outcome =
        engine.expect_refused(row[0].empty() ? section[1] : row[0], row[2].substr(at_once ? 0 : 3));
    EXPECT_TRUE(outcome.lines.size() == 1 || !at_once);
  }
  EXPECT_GT(cases, 0);
}

INSTANTIATE_TEST_SUITE_P(, Refusal,
                         testing::Values("fresh", "image", "tissue", "done", "model", "maps",
                                         "jackknife"),
                         [](const auto& folder) { return std::string(folder.param); });

}  // namespace
