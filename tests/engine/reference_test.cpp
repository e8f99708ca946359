// The maps against R: the effects of each study from its peaks, and the mean and the linear models
// by metafor.

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>

#include "runner.h"

using namespace kvo::images;

namespace {

/// One- and two-sample studies, small and large, in both spaces, with known and unknown heights,
/// overlapping peaks, peaks between voxels, beyond the mask and none at all, and an image.
void write_varied_studies() {
  write_text("kvo_table.txt",
             "study,n1,n2,threshold_t,adults,age,micrograms,tesla,group\n"
             "one,12,NA,NA,1,31.5,2.1e6,-0.0012,1\n"
             "two,15,17,NA,1,24,5.5e6,0.0031,0\n"
             "small,3,NA,NA,0,61.25,1.4e6,0.0007,0\n"
             "large,20000,10000,NA,1,43,9.7e6,-0.0044,1\n"
             "unknown,18,NA,NA,NA,38,3.2e6,0.0058,1\n"
             "threshold,24,22,2.7,1,NA,4.8e6,0.0026,0\n"
             "no=thing+,20,20,NA,1,52,NA,-0.0039,1\n"
             "talairach,30,NA,NA,1,29.75,7.3e6,-0.0005,0\n"
             "image,14,16,NA,1,47,6.6e6,0.0019,1\n");
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
  file.precision(17);
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
  engine.must_run({"pp gray_matter, 0, 8, gray_matter, 1", "All = mean", "Adults = mean adults",
                   "One = lm micrograms", "Two = lm age + micrograms, adults",
                   "Four = lm age + micrograms + tesla + group"});
  std::vector<std::string> maps;
  for (const char* study :
       {"one", "two", "small", "large", "unknown", "threshold", "no=thing+", "talairach", "image"})
    for (const char* suffix : {"_g", "_var"}) maps.push_back("pp/" + (study + std::string(suffix)));
  for (const char* name : {"All", "Adults"})
    for (const char* suffix : {"_g", "_var", "_z", "_tau2", "_I2", "_Q"})
      maps.push_back(name + std::string(suffix));
  for (const char* name : {"One_0", "One_1", "Two_00", "Two_10", "Two_01", "Four_0000", "Four_1000",
                           "Four_0100", "Four_0010", "Four_0001"})
    for (const char* suffix : {"_g", "_var", "_z"}) maps.push_back(name + std::string(suffix));
  for (const char* name : {"One_0", "Two_00", "Four_0000"})
    for (const char* suffix : {"_tau2", "_I2", "_Q"}) maps.push_back(name + std::string(suffix));
  write_values("voxels.tsv", maps);
  EXPECT_EQ(std::system(KVO_RSCRIPT " --vanilla '" KVO_REFERENCE "' 8 1>&2"), 0);
}

}  // namespace
