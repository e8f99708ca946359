#include "engine/model/pooling.h"

#include <algorithm>
#include <cmath>

#include "engine/base/vectors.h"

namespace kvo::model {

namespace {

// The sums of a block stay in the first-level cache while all studies pass over them.
constexpr std::size_t block_voxels = 256;

using Sums = double[block_voxels];

/// The studies of a group pass over the sums together, so that the sums travel between cache and
/// registers once for all of them. Each sum still grows study by study.
constexpr std::size_t group_studies = 4;

using Maps = const float* const*;

/// Adds up w, w^2, w g and w g^2 of so many studies, w = 1/var.
template <std::size_t studies>
[[gnu::always_inline]] inline void add_group(Maps g, Maps var, std::size_t begin, std::size_t n,
                                             double* __restrict sw, double* __restrict sww,
                                             double* __restrict swg, double* __restrict swgg) {
  for (std::size_t v = 0; v < n; ++v) {
    double w = sw[v], ww = sww[v], wg = swg[v], wgg = swgg[v];
    for (std::size_t s = 0; s < studies; ++s) {
      const double effect = g[s][begin + v];
      const double weight = 1.0 / double(var[s][begin + v]);
      const double weighted = weight * effect;
      w += weight;
      ww += weight * weight;
      wg += weighted;
      wgg += weighted * effect;
    }
    sw[v] = w, sww[v] = ww, swg[v] = wg, swgg[v] = wgg;
  }
}

WIDEST_VECTORS void add_studies(Maps g, Maps var, std::size_t studies, std::size_t begin,
                                std::size_t n, double* sw, double* sww, double* swg, double* swgg) {
  std::size_t s = 0;
  for (; s + group_studies <= studies; s += group_studies)
    add_group<group_studies>(g + s, var + s, begin, n, sw, sww, swg, swgg);
  for (; s < studies; ++s) add_group<1>(g + s, var + s, begin, n, sw, sww, swg, swgg);
}

/// Adds up w and w g of so many studies, w = 1 / (var + tau2).
template <std::size_t studies>
[[gnu::always_inline]] inline void add_group_again(Maps g, Maps var, std::size_t begin,
                                                   const double* __restrict tau2, std::size_t n,
                                                   double* __restrict sw, double* __restrict swg) {
  for (std::size_t v = 0; v < n; ++v) {
    double w = sw[v], wg = swg[v];
    for (std::size_t s = 0; s < studies; ++s) {
      const double weight = 1.0 / (double(var[s][begin + v]) + tau2[v]);
      w += weight;
      wg += weight * double(g[s][begin + v]);
    }
    sw[v] = w, swg[v] = wg;
  }
}

WIDEST_VECTORS void add_studies_again(Maps g, Maps var, std::size_t studies, std::size_t begin,
                                      const double* tau2, std::size_t n, double* sw, double* swg) {
  std::size_t s = 0;
  for (; s + group_studies <= studies; s += group_studies)
    add_group_again<group_studies>(g + s, var + s, begin, tau2, n, sw, swg);
  for (; s < studies; ++s) add_group_again<1>(g + s, var + s, begin, tau2, n, sw, swg);
}

/// Q and tau2 from the sums; `spread` is how much of Q a degree of freedom more accounts for.
WIDEST_VECTORS void heterogeneity(const double* __restrict sw, const double* __restrict sww,
                                  const double* __restrict swg, const double* __restrict swgg,
                                  std::size_t n, double df, double* __restrict Q,
                                  double* __restrict tau2) {
  for (std::size_t v = 0; v < n; ++v) {
    const double q = swgg[v] - swg[v] * swg[v] / sw[v];
    const double scale = sw[v] - sww[v] / sw[v];
    Q[v] = q > 0 ? q : 0;
    tau2[v] = q > df && scale > 0 ? (q - df) / scale : 0;
  }
}

/// Writes the results of a block whose first voxel is `begin`.
WIDEST_VECTORS void store(const double* __restrict sw, const double* __restrict swg,
                          const double* __restrict Q, const double* __restrict tau2,
                          std::size_t begin, std::size_t n, double df, const PooledMaps& maps) {
  float* __restrict z = maps.z + begin;
  for (std::size_t v = 0; v < n; ++v) z[v] = float(swg[v] / std::sqrt(sw[v]));
  if (maps.g != nullptr)
    for (std::size_t v = 0; v < n; ++v) maps.g[begin + v] = float(swg[v] / sw[v]);
  if (maps.var != nullptr)
    for (std::size_t v = 0; v < n; ++v) maps.var[begin + v] = float(1 / sw[v]);
  if (maps.tau2 != nullptr)
    for (std::size_t v = 0; v < n; ++v) maps.tau2[begin + v] = float(tau2[v]);
  if (maps.Q != nullptr)
    for (std::size_t v = 0; v < n; ++v) maps.Q[begin + v] = float(Q[v]);
  if (maps.I2 != nullptr)
    for (std::size_t v = 0; v < n; ++v)
      maps.I2[begin + v] = Q[v] > df ? float(100 * (Q[v] - df) / Q[v]) : 0;
}

}  // namespace

void pool(std::span<const float* const> g, std::span<const float* const> var, std::size_t voxels,
          const PooledMaps& maps) {
  const std::size_t studies = g.size();
  const double df = double(studies) - 1;
  for (std::size_t begin = 0; begin < voxels; begin += block_voxels) {
    const std::size_t n = std::min(block_voxels, voxels - begin);
    Sums sw{}, sww{}, swg{}, swgg{}, Q{}, tau2{};
    add_studies(g.data(), var.data(), studies, begin, n, sw, sww, swg, swgg);
    if (studies > 1) heterogeneity(sw, sww, swg, swgg, n, df, Q, tau2);
    if (std::any_of(tau2, tau2 + n, [](double value) { return value > 0; })) {
      std::fill(sw, sw + n, 0.0);
      std::fill(swg, swg + n, 0.0);
      add_studies_again(g.data(), var.data(), studies, begin, tau2, n, sw, swg);
    }
    store(sw, swg, Q, tau2, begin, n, df, maps);
  }
}

}  // namespace kvo::model
