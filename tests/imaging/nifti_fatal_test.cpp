// The layer that ends the program when an image cannot be read.

#include "imaging/nifti.h"

#include <gmock/gmock.h>

#include <array>

#include "made_image.h"

namespace {

void write_series(const char* path, std::int16_t volumes) {
  Nifti_header header = made_header();
  header.dim[0] = 4;
  header.dim[4] = volumes;
  header.datatype = 2;
  header.bitpix = 8;
  write_text(path, single_file(header, std::string(24 * static_cast<std::size_t>(volumes), '\1')));
}

struct Loaded {
  Nifti_header header{};
  std::int32_t n_volumes = 0;
  std::int32_t voxels = 0;
  std::array<Nifti_volume, 3> volumes;
};

TEST(LoadNifti, FillsWhatTheCallerProvides) {
  const Test_folder folder;
  write_series("3 %s.nii", 3);
  Loaded l;
  EXPECT_EQ(Q_load_nifti(l.header, l.n_volumes, l.voxels, l.volumes, "%i %s.nii", 3, "%s"), 2);
  EXPECT_EQ(l.n_volumes, 3);
  EXPECT_EQ(l.voxels, 24);
  EXPECT_EQ(l.header.dim[4], 3);
  for (const Nifti_volume& volume : l.volumes) EXPECT_EQ(volume[23], 1);
}

TEST(LoadNiftiDeathTest, EndsTheProgramWithTheReadersMessage) {
  const Test_folder folder;
  write_series("4.nii", 4);
  const std::string closing =
      "\\.\nThe program will close as this problem could cause fatal errors.";
  Loaded l;
  EXPECT_EXIT(Q_load_nifti(l.header, l.n_volumes, l.voxels, l.volumes, "no%s.nii", "%n"),
              testing::ExitedWithCode(1), "^File 'no%n.nii' not found" + closing);
  EXPECT_EXIT(
      Q_load_nifti(l.header, l.n_volumes, l.voxels, l.volumes, "4.nii"), testing::ExitedWithCode(1),
      "^NIfTI file '4.nii' has a wrong size \\(4 volumes, which is more than 3\\)" + closing);
}

TEST(LoadNiftiOneDeathTest, TakesExactlyOneVolume) {
  const Test_folder folder;
  write_series("1.nii", 1);
  write_series("2.nii", 2);
  write_series("3001.nii", 3001);
  Nifti_header header{};
  std::int32_t voxels = 0;
  Nifti_volume volume;
  Q_load_nifti_one_or_die(header, voxels, volume, "%i.nii", 1);
  EXPECT_EQ(voxels, 24);
  EXPECT_EQ(volume[0], 1);
  EXPECT_EXIT(Q_load_nifti_one_or_die(header, voxels, volume, "%i", 2), testing::ExitedWithCode(1),
              "^'2' does not contain one volume\\.");
  EXPECT_EXIT(Q_load_nifti_one_or_die(header, voxels, volume, "3001.nii"),
              testing::ExitedWithCode(1), "^NIfTI file '3001.nii' has a wrong size");
}

}  // namespace
