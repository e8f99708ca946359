#include "bench/simulated_studies.h"

#include <algorithm>
#include <cmath>

#include "engine/base/parallel.h"
#include "engine/images/gaussian.h"

namespace kvo::simulated {

namespace {

/// Smooths along an axis of the grid, which goes on beyond each side at the opposite one.
void smooth(Map& map, std::size_t axis, double sigma) {
  const auto n = std::size_t(mni_grid().size[axis]);
  const auto reach = std::size_t(std::ceil(3.5 * sigma));
  std::vector<float> weights;
  for (std::size_t k = 0; k <= 2 * reach; ++k)
    weights.push_back(float(gaussian(double(k) - double(reach), sigma)));
  std::size_t stride = 1;
  for (std::size_t a = 0; a < axis; ++a) stride *= std::size_t(mni_grid().size[a]);
  // So many neighbouring lines at a time.
  constexpr std::size_t lines = 16;
  std::vector<float> in((n + 2 * reach) * lines), out(lines);
  const std::size_t all = map.size() / n;
  const auto start = [&](std::size_t line) { return line / stride * stride * n + line % stride; };
  for (std::size_t first = 0; first < all; first += lines) {
    const std::size_t count = std::min(lines, all - first);
    for (std::size_t x = 0; x < n + 2 * reach; ++x)
      for (std::size_t l = 0; l < count; ++l)
        in[x * lines + l] = map[start(first + l) + (x + n - reach % n) % n * stride];
    for (std::size_t x = 0; x < n; ++x) {
      std::fill(out.begin(), out.end(), 0);
      for (std::size_t k = 0; k < weights.size(); ++k)
        for (std::size_t l = 0; l < lines; ++l) out[l] += weights[k] * in[(x + k) * lines + l];
      for (std::size_t l = 0; l < count; ++l) map[start(first + l) + x * stride] = out[l];
    }
  }
}

/// A smooth field of mean 0 and variance 1.
Map field(std::mt19937_64& random, double fwhm) {
  std::normal_distribution<float> normal;
  Map map(mni_grid().voxels());
  for (float& value : map) value = normal(random);
  for (std::size_t axis = 0; axis < 3; ++axis) smooth(map, axis, sigma_of_fwhm(fwhm) / voxel_mm);
  double sum = 0, squares = 0;
  for (const float value : map) sum += double(value), squares += double(value) * double(value);
  const double mean = sum / double(map.size());
  const double sd = std::sqrt(squares / double(map.size()) - mean * mean);
  for (float& value : map) value = float((double(value) - mean) / sd);
  return map;
}

/// The voxels of a cluster where the map, times the sign, is highest among their neighbours; the
/// highest first.
std::vector<std::uint32_t> maxima_of(const std::vector<std::uint32_t>& cluster, const Map& g,
                                     const Mask& mask, float sign) {
  std::vector<std::uint32_t> maxima;
  for (const std::uint32_t v : cluster) {
    bool highest = true;
    for_each_neighbour(mni_grid(), v, Touch::corners, [&](std::size_t u) {
      if (mask.inside[u] && sign * g[u] > sign * g[v]) highest = false;
    });
    if (highest) maxima.push_back(v);
  }
  std::sort(maxima.begin(), maxima.end(),
            [&](std::uint32_t a, std::uint32_t b) { return sign * g[a] > sign * g[b]; });
  return maxima;
}

}  // namespace

SimulatedStudies simulate(const Truth& truth, std::size_t studies, std::uint64_t seed) {
  std::mt19937_64 random(seed);
  SimulatedStudies made{field(random, truth.width), std::vector<SimulatedStudy>(studies)};
  const Map wide = field(random, 2 * truth.width);
  for (std::size_t v = 0; v < made.truth.size(); ++v)
    made.truth[v] = float(truth.mean + truth.sd * double(0.8F * made.truth[v] + 0.6F * wide[v]));
  base::in_parallel(studies, [&](std::size_t s, std::size_t) {
    std::mt19937_64 own(seed * 1000 + s);
    SimulatedStudy& study = made.studies[s];
    study.sample.n1 = 9 + int(own() % 25);
    study.g = field(own, 24);
    const Map noise = field(own, truth.noise);
    const VarianceOfG variance = variance_of_g(study.sample);
    for (std::size_t v = 0; v < noise.size(); ++v) {
      const double g = double(made.truth[v]) + truth.tau * double(study.g[v]);
      study.g[v] = float(g + std::sqrt(variance.at(g)) * double(noise[v]));
    }
  });
  return made;
}

std::vector<Peak> listed_peaks(const SimulatedStudy& study, const Mask& mask,
                               const ListingRule& rule) {
  const auto threshold = float(hedges_g(t_of_p(rule.threshold_p, study.sample), study.sample));
  std::vector<Peak> listed;
  for (const float sign : {1.0F, -1.0F}) {
    if (sign < 0 && !rule.both_signs) break;
    std::vector<bool> seen(study.g.size());
    const auto take = [&](std::size_t v) {
      if (seen[v] || !mask.inside[v] || sign * study.g[v] <= threshold) return false;
      seen[v] = true;
      return true;
    };
    for (const std::uint32_t first : mask.grid_index) {
      if (!take(first)) continue;
      const auto cluster = connected_voxels(mni_grid(), first, Touch::corners, take);
      if (cluster.size() < rule.extent) continue;
      const std::size_t before = listed.size();
      for (const std::uint32_t v : maxima_of(cluster, study.g, mask, sign)) {
        const Eigen::Vector3d mm = mni_grid().mm(mni_grid().voxel(v));
        const bool near =
            std::any_of(listed.begin() + std::ptrdiff_t(before), listed.end(),
                        [&](const Peak& other) { return (other.mm - mm).norm() < rule.distance; });
        if (near) continue;
        listed.push_back({mm, double(study.g[v])});
        if (listed.size() - before == rule.per_cluster) break;
      }
    }
  }
  return listed;
}

}  // namespace kvo::simulated
