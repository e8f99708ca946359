// Writing of images and of headers: what is written reads the same, and a disk that takes no more
// leaves everything as it was. That other software can read it is checked elsewhere.

#include "nifti/nifti_write.h"

#include <gmock/gmock.h>

#include <algorithm>

#include "file_size_limit.h"
#include "made_image.h"

namespace {

bool yes() {
  return true;
}

std::vector<std::string> names() {
  std::vector<std::string> result;
  for (const auto& entry : std::filesystem::directory_iterator("."))
    result.push_back(entry.path().filename());
  std::ranges::sort(result);
  return result;
}

Nifti_image made_image() {
  Nifti_header header = made_header();
  std::memcpy(header.descrip, "made for a test", 15);
  header.intent_code = NIFTI_Z_SCORE;
  write_text("made.nii", single_file(header, bytes_of(made_values())));
  auto image = std::get<Nifti_image>(nifti_read("made.nii"));
  std::filesystem::remove("made.nii");
  return image;
}

TEST(NiftiWrite, GivesTheSameBytesEachTimeAndReadsBack) {
  const Test_folder folder;
  const Nifti_image image = made_image();
  for (const char* path : {"a.nii", "a.nii.gz"}) {
    ASSERT_FALSE(nifti_write(path, image, yes));
    const std::string first = read_text(path);
    ASSERT_FALSE(nifti_write(path, image, yes));
    EXPECT_EQ(read_text(path), first);
    const auto again = std::get<Nifti_image>(nifti_read(path));
    EXPECT_TRUE(std::ranges::equal(again.values(0), image.values(0)));
    EXPECT_EQ(bytes_of(again.header), bytes_of(image.header));
  }
  EXPECT_EQ(read_text("a.nii.gz").substr(0, 8), std::string("\x1f\x8b\x08\0\0\0\0\0", 8))
      << "no name and no time";
}

TEST(NiftiWrite, LeavesTheOldFileWhenItCannotOrMayNotFinish) {
  const Test_folder folder;
  const Nifti_image image = made_image();
  write_text("a.nii", "old");
  EXPECT_FALSE(nifti_write("a.nii", image, [] { return false; })) << "giving up is no error";
  EXPECT_EQ(read_text("a.nii"), "old");
  for (rlim_t room = 0; room < 448; room += 32) {
    const File_size_limit limit(room);
    const auto error = nifti_write("a.nii", image, yes);
    ASSERT_TRUE(error) << room;
    EXPECT_EQ(error->message, "File 'a.nii' not writable (File too large)");
  }
  EXPECT_EQ(read_text("a.nii"), "old");
  EXPECT_THAT(names(), testing::ElementsAre("a.nii"));
  EXPECT_EQ(nifti_write("none/a.nii", image, yes)->message,
            "File 'none/a.nii' not writable (No such file or directory)");
}

TEST(NiftiRewriteHeader, ChangesNothingBehindTheHeader) {
  const Test_folder folder;
  const std::string behind(1 << 20, 'v');
  for (const bool swapped : {false, true}) {
    Nifti_header header = made_header();
    if (swapped) nifti_swap_header(header);
    write_text("a.nii", bytes_of(header) + behind);
    write_gzip("a.nii.gz", bytes_of(header) + behind);
    write_text("a.hdr", bytes_of(header) + "ext");
    for (const char* path : {"a.nii", "a.nii.gz", "a.hdr"}) {
      const auto error = nifti_rewrite_header(
          path, [](Nifti_header& h) { h.intent_code = NIFTI_T_STATISTIC; }, yes);
      ASSERT_FALSE(error) << error->message;
      const auto info = std::get<Nifti_info>(nifti_read_info(path));
      EXPECT_EQ(info.other_order, swapped) << path;
      EXPECT_EQ(info.header.intent_code, NIFTI_T_STATISTIC) << path;
    }
    EXPECT_EQ(read_text("a.nii").substr(sizeof header), behind);
    EXPECT_EQ(read_text("a.hdr").substr(sizeof header), "ext");
    const Q_gz_file file(gzopen("a.nii.gz", "rb"));
    std::string inside(2 << 20, '\0');
    inside.resize(static_cast<std::size_t>(
        gzread(file.get(), inside.data(), static_cast<unsigned>(inside.size()))));
    EXPECT_EQ(inside.substr(sizeof header), behind);
  }
}

TEST(NiftiRewriteHeader, LeavesADamagedFileAlone) {
  const Test_folder folder;
  write_gzip("a.nii.gz", single_file(made_header(), bytes_of(made_values())));
  const std::string damaged = read_text("a.nii.gz").substr(0, read_text("a.nii.gz").size() - 3);
  write_text("a.nii.gz", damaged);
  const auto error = nifti_rewrite_header(
      "a.nii.gz", [](Nifti_header&) {}, yes);
  ASSERT_TRUE(error);
  EXPECT_EQ(error->message, "Unexpected end of NIfTI file 'a.nii.gz'");
  EXPECT_EQ(read_text("a.nii.gz"), damaged);
  EXPECT_THAT(names(), testing::ElementsAre("a.nii.gz"));
}

}  // namespace
