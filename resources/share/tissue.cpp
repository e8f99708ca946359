#include "resources/share/tissue.h"

#include <Eigen/LU>
#include <algorithm>
#include <cmath>
#include <numeric>

namespace kvo::share {

namespace {

constexpr int iterations = 500;
constexpr double closing_mm = 6;      // bridges the sulci
constexpr double rim_mm = 2;          // of fluid between the brain's surface and the skull
constexpr float caudate_left = 71;    // the first of the AAL regions of the deep nuclei
constexpr float thalamus_right = 78;  // the last of them

template <typename Condition>
Volume fraction(const Image& labels, Condition condition) {
  return measure_voxels(labels, Sampling::nearest, {}, [condition](Samples samples) {
    return float(std::count_if(samples.begin(), samples.end(), condition)) / points_per_voxel;
  });
}

/// The intensities of the head's own voxels whose centres lie in the mask.
std::vector<double> histogram_within(const Image& head, const Mask& mask) {
  const Eigen::Matrix4d to_voxel = mni_grid().to_mm.inverse() * head.grid.to_mm;
  std::vector<double> histogram(256, 0.0);
  std::size_t index = 0;
  for (int k = 0; k < head.grid.size[2]; ++k)
    for (int j = 0; j < head.grid.size[1]; ++j)
      for (int i = 0; i < head.grid.size[0]; ++i, ++index) {
        const Eigen::Vector4d at = (to_voxel * Eigen::Vector4d(i, j, k, 1)).array() + 0.5;
        std::array<int, 3> v{};
        bool inside = true;
        for (std::size_t d = 0; d < 3; ++d) {
          v[d] = int(std::floor(at[Eigen::Index(d)]));
          inside = inside && v[d] >= 0 && v[d] < mni_grid().size[d];
        }
        if (!inside || mask[mni_grid().index(v[0], v[1], v[2])] == 0) continue;
        const float intensity = std::clamp(std::round(head.values[index]), 0.0F, 255.0F);
        histogram[std::size_t(intensity)] += 1;
      }
  return histogram;
}

/// The intensity that this part of all voxels does not exceed.
double quantile(const std::vector<double>& histogram, double part) {
  const double wanted = part * std::accumulate(histogram.begin(), histogram.end(), 0.0);
  double sum = 0;
  for (std::size_t x = 0; x < histogram.size(); ++x)
    if ((sum += histogram[x]) >= wanted) return double(x);
  return double(histogram.size() - 1);
}

}  // namespace

Mask brain_mask(const Sources& sources) {
  const auto labelled = [](float value) { return value > 0; };
  const Mask regions = at_least(fraction(sources.aal, labelled), 0.5F);
  Mask brain = at_least(fraction(sources.stripped, labelled), 0.5F);
  const auto join_regions = [&] {
    for (std::size_t v = 0; v < brain.size(); ++v) brain[v] |= regions[v];
  };
  join_regions();
  brain = fill_holes(erode(dilate(brain, closing_mm), closing_mm));
  brain = largest_part(dilate(erode(brain, closing_mm), closing_mm));
  join_regions();
  return largest_part(brain);
}

Mask intracranial_mask(const Mask& brain) {
  return fill_holes(dilate(brain, rim_mm));
}

std::array<double, 3> TissueMixture::posterior(double intensity) const {
  std::array<double, 3> density{};
  for (std::size_t c = 0; c < 3; ++c) {
    const double z = (intensity - mean[c]) / sd;
    density[c] = share[c] * std::exp(-0.5 * z * z);
  }
  const double sum = density[0] + density[1] + density[2];
  // So far out that every density is 0 in double precision, the nearest class is certain.
  if (sum <= 0) return intensity < mean[1] ? std::array{1.0, 0.0, 0.0} : std::array{0.0, 0.0, 1.0};
  for (double& d : density) d /= sum;
  return density;
}

TissueMixture fit_tissues(const std::vector<double>& histogram) {
  const double total = std::accumulate(histogram.begin(), histogram.end(), 0.0);
  TissueMixture mixture;
  mixture.mean = {quantile(histogram, 0.05), quantile(histogram, 0.4), quantile(histogram, 0.8)};
  mixture.share = {0.2, 0.4, 0.4};
  mixture.sd = (mixture.mean[2] - mixture.mean[0]) / 4;
  for (int iteration = 0; iteration < iterations; ++iteration) {
    std::array<double, 3> n{};
    std::array<double, 3> sum{};
    std::array<double, 3> squares{};
    for (std::size_t x = 0; x < histogram.size(); ++x) {
      const std::array<double, 3> p = mixture.posterior(double(x));
      for (std::size_t c = 0; c < 3; ++c) {
        n[c] += histogram[x] * p[c];
        sum[c] += histogram[x] * p[c] * double(x);
        squares[c] += histogram[x] * p[c] * double(x) * double(x);
      }
    }
    double within = 0;
    for (std::size_t c = 0; c < 3; ++c) {
      mixture.mean[c] = sum[c] / n[c];
      mixture.share[c] = n[c] / total;
      within += squares[c] - n[c] * mixture.mean[c] * mixture.mean[c];
    }
    mixture.sd = std::sqrt(within / total);
  }
  return mixture;
}

Tissues classify_tissues(const Sources& sources, const Mask& brain, const Mask& intracranial) {
  const TissueMixture mixture = fit_tissues(histogram_within(sources.head, brain));
  const auto class_volume = [&](std::size_t tissue, const Mask& within) {
    std::array<float, 256> probability{};
    for (std::size_t x = 0; x < probability.size(); ++x)
      probability[x] = float(mixture.posterior(double(x))[tissue]);
    return measure_voxels(sources.head, Sampling::trilinear, within, [probability](Samples s) {
      double sum = 0;
      for (const float intensity : s)
        sum += double(probability[std::size_t(std::clamp(std::round(intensity), 0.0F, 255.0F))]);
      return float(sum / double(points_per_voxel));
    });
  };
  Tissues tissues{class_volume(1, brain), class_volume(2, brain), class_volume(0, intracranial)};
  const Volume nuclei = fraction(
      sources.aal, [](float region) { return region >= caudate_left && region <= thalamus_right; });
  for (std::size_t v = 0; v < nuclei.size(); ++v) {
    const float moved = nuclei[v] * tissues.white[v];
    tissues.gray[v] += moved;
    tissues.white[v] -= moved;
  }
  return tissues;
}

}  // namespace kvo::share
