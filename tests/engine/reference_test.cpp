// The maps against R: the effects of each study from its peaks, and the mean by metafor.

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>

#include "runner.h"

namespace {

/// One- and two-sample studies, small and large, in both spaces, with known and unknown heights,
/// overlapping peaks, peaks between voxels, beyond the mask and none at all, and
/// an image.
void write_varied_studies() {
  write_text("kvo_table.txt",
             "study,n1,n2,threshold_t,adults\n"
             "one,12,NA,NA,1\n"
             "two,15,17,NA,1\n"
             "small,3,NA,NA,0\n"
             "large,1000000,500000,NA,1\n"
             "unknown,18,NA,NA,NA\n"
             "threshold,24,22,2.7,1\n"
             "no=thing+,20,20,NA,1\n"
             "talairach,30,NA,NA,1\n"
             "image,14,16,NA,1\n");
  const auto peaks = [](const char* study, const char* lines) {
    write_text(std::string(study) + ".peaks.txt", lines);
  };
  peaks("one", "# space: MNI\n# comment\n24 -14 6 4.25 # the largest\n32,-10,4,-3.5\n");
  peaks("two", "# space: MNI\n20.7 -11.3 3.1 +3.75\n24 -12 4 3.1\n22 -14 8 2.9\n24 -12 4 5.5\n");
  peaks("small", "# SPACE: mni\r\n28 -16 2 7.5\r\n");
  peaks("large", "# space: MNI\n26 -8 10 3\n");
  peaks("unknown", "# space: MNI\n30 -18 2 p\n22 -10 8 n\n");
  peaks("threshold", "# space: MNI\n26 -14 6 p\n38 -14 6 n\n90 -100 60 4\n");
  peaks("no=thing+", "# space: MNI\n");
  peaks("talairach", "24 -14 6 4.8\n# space: Talairach\n");
  write_t_image("image", 3);
}

void write_values(const std::string& path, const std::vector<std::string>& maps) {
  std::ofstream file(path);
  file.precision(9);
  file << "x\ty\tz";
  std::vector<Image> images;
  for (const std::string& map : maps) {
    file << '\t' << map;
    images.push_back(read_image(map + ".nii.gz"));
  }
  for (const auto& voxel : box_voxels()) {
    file << '\n' << voxel[0] << '\t' << voxel[1] << '\t' << voxel[2];
    for (const Image& image : images) file << '\t' << value_at(image, voxel);
  }
  file << '\n';
}

TEST(Reference, AgreesInEveryVoxel) {
  const Installation engine;
  write_varied_studies();
  ASSERT_EQ(engine.run("pp gray_matter, 0, 8, gray_matter, 1").closing(), "d");
  ASSERT_EQ(engine.run("All = mean").closing(), "d");
  ASSERT_EQ(engine.run("Adults = mean adults").closing(), "d");
  std::vector<std::string> maps;
  for (const char* study :
       {"one", "two", "small", "large", "unknown", "threshold", "no=thing+", "talairach", "image"})
    for (const char* suffix : {"_g", "_var"}) maps.push_back("pp/" + (study + std::string(suffix)));
  for (const char* name : {"All", "Adults"})
    for (const char* suffix : {"_g", "_var", "_z", "_tau2", "_I2", "_Q"})
      maps.push_back(name + std::string(suffix));
  write_values("voxels.tsv", maps);
  EXPECT_EQ(std::system(KVO_RSCRIPT " --vanilla " KVO_REFERENCE " 8 1>&2"), 0);
}

}  // namespace
