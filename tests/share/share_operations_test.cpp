// The operations that the masks and templates are made with, each on volumes whose result is known.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "resources/share/tissue.h"
#include "resources/share/volume.h"

using namespace kvo::share;

namespace {

using Voxel = std::array<int, 3>;
constexpr Voxel centre{45, 54, 45};

std::size_t at(const Voxel& v) {
  return mni_grid().index(v[0], v[1], v[2]);
}

template <typename Value>
Volume volume_of(Value value) {
  const Grid& grid = mni_grid();
  Volume volume;
  for (int k = 0; k < grid.size[2]; ++k)
    for (int j = 0; j < grid.size[1]; ++j)
      for (int i = 0; i < grid.size[0]; ++i) volume.push_back(float(value(i, j, k)));
  return volume;
}

template <typename Condition>
Mask mask_of(Condition condition) {
  return at_least(volume_of(condition), 0.5F);
}

double distance(int i, int j, int k) {
  return std::hypot(i - centre[0], j - centre[1], k - centre[2]);
}

TEST(SampleVoxel, TakesValuesWhereTheImageItselfPlacesThem) {
  // A sheared and shifted 3 mm image whose value is the place in the head, x + 1000 y - 7 z.
  Image image;
  image.grid.size = {70, 80, 70};
  image.grid.to_mm << 3, 0.4, 0, -105,  //
      0, 3, 0, -130,                    //
      0.2, 0, 3, -60,                   //
      0, 0, 0, 1;
  for (int k = 0; k < 70; ++k)
    for (int j = 0; j < 80; ++j)
      for (int i = 0; i < 70; ++i) {
        const Eigen::Vector4d mm = image.grid.to_mm * Eigen::Vector4d(i, j, k, 1);
        image.values.push_back(float(mm.x() + 1000 * mm.y() - 7 * mm.z()));
      }
  const auto samples = Sampler(image, Sampling::trilinear).samples({48, 40, 30});
  const double x = 6;
  const double y = -46;
  const double z = -12;
  const auto expected = [&](double offset) {
    return (x + offset) + 1000 * (y + offset) - 7 * (z + offset);
  };
  EXPECT_NEAR(samples.front(), expected(-0.75), 0.02);
  EXPECT_NEAR(samples.back(), expected(0.75), 0.02);
  const auto beyond = Sampler(image, Sampling::nearest).samples({45, 54, 0});
  EXPECT_EQ(std::count(beyond.begin(), beyond.end(), 0.0F), std::ptrdiff_t(points_per_voxel));
}

TEST(Smooth, HalvesAtHalfTheWidthAndKeepsTheSum) {
  Volume point(mni_grid().voxels(), 0.0F);
  point[at(centre)] = 1000;
  for (const double fwhm : {4.0, 8.0, 12.0}) {
    const Volume smoothed = smooth(point, fwhm);
    const int half_width = int(fwhm / 4);
    for (std::size_t axis = 0; axis < 3; ++axis) {
      Voxel side = centre;
      side[axis] += half_width;
      EXPECT_NEAR(smoothed[at(side)] / smoothed[at(centre)], 0.5, 1e-5) << fwhm << " axis " << axis;
    }
    double sum = 0;
    for (const float value : smoothed) sum += double(value);
    EXPECT_NEAR(sum, 1000, 0.1) << fwhm;
  }
}

TEST(Morphology, GrowsAndWearsOffByTheRadius) {
  const Mask sphere = mask_of([](int i, int j, int k) { return distance(i, j, k) <= 10; });
  const Mask grown = dilate(sphere, 6);
  const Mask worn = erode(sphere, 6);
  for (const auto& [steps, in_grown, in_worn] :
       {std::tuple{0, 1, 1}, {7, 1, 1}, {8, 1, 0}, {13, 1, 0}, {14, 0, 0}}) {
    const Voxel v{centre[0] + steps, centre[1], centre[2]};
    EXPECT_EQ(grown[at(v)], in_grown) << steps << " voxels from the centre";
    EXPECT_EQ(worn[at(v)], in_worn) << steps << " voxels from the centre";
  }
  const Mask everything(mni_grid().voxels(), 1);
  EXPECT_EQ(count(erode(everything, 6)), mni_grid().voxels()) << "the border wears nothing off";
}

TEST(Parts, LargestIsKeptAndOnlyClosedHolesAreFilled) {
  const auto shell = [](int i, int j, int k) {
    return distance(i, j, k) <= 10 && distance(i, j, k) > 5;
  };
  const Mask ball = mask_of([](int i, int j, int k) { return distance(i, j, k) <= 10; });
  EXPECT_EQ(fill_holes(mask_of(shell)), ball);
  const auto opened = [&](int i, int j, int k) {
    return shell(i, j, k) && !(j == centre[1] && k == centre[2] && i > centre[0]);
  };
  EXPECT_EQ(fill_holes(mask_of(opened)), mask_of(opened));
  // A second, smaller part that touches the ball at an edge only.
  const auto touching = [](int i, int j, int k) {
    return distance(i, j, k) <= 10 || (i == centre[0] + 11 && j == centre[1] + 1 && k == centre[2]);
  };
  EXPECT_EQ(largest_part(mask_of(touching)), ball);
}

TEST(SheetCentres, LieOnTheCrestAndNowhereElse) {
  // An oblique sheet: a Gaussian profile across the plane i + j = 99.
  const auto across = [](int i, int j) { return (i + j - 99) / std::sqrt(2.0); };
  const Volume sheet =
      volume_of([&](int i, int j, int) { return std::exp(-0.5 * std::pow(across(i, j) / 3, 2)); });
  const Mask inner = mask_of([](int i, int j, int k) { return distance(i, j, k) <= 20; });
  const Mask centres = sheet_centres(sheet, inner);
  const Mask expected =
      mask_of([&](int i, int j, int k) { return distance(i, j, k) <= 20 && i + j == 99; });
  EXPECT_EQ(centres, expected);
}

TEST(FitTissues, RecoversTheMixtureThatMadeTheHistogram) {
  const std::array<double, 3> means{45, 82, 107};
  const std::array<double, 3> shares{0.15, 0.45, 0.4};
  const double sd = 9;
  std::vector<double> histogram(256);
  for (std::size_t x = 0; x < histogram.size(); ++x)
    for (std::size_t c = 0; c < 3; ++c)
      histogram[x] +=
          1e6 * shares[c] / sd * std::exp(-0.5 * std::pow((double(x) - means[c]) / sd, 2));
  const TissueMixture mixture = fit_tissues(histogram);
  EXPECT_NEAR(mixture.sd, sd, 0.1);
  for (std::size_t c = 0; c < 3; ++c) {
    EXPECT_NEAR(mixture.mean[c], means[c], 0.3) << "class " << c;
    EXPECT_NEAR(mixture.share[c], shares[c], 0.01) << "class " << c;
  }
  // Where two classes with the shares p and q meet: the density ratio of the normal distributions.
  EXPECT_NEAR(mixture.posterior(94.5)[1], 0.45 / (0.45 + 0.4), 0.02);
  EXPECT_EQ(mixture.posterior(5000), (std::array{0.0, 0.0, 1.0}));
}

}  // namespace
