#include "engine/model/pooling.h"

#include <algorithm>
#include <cmath>

#include "engine/base/vectors.h"

namespace kvo::model {

namespace {

// The sums of a block stay in the first-level cache while all studies pass over them.
constexpr std::size_t block_voxels = 256;

using Block = double[block_voxels];

/// The studies of a group pass over the sums together, so that the sums travel between cache and
/// registers once for all of them. Each sum still grows study by study.
constexpr std::size_t group_studies = 4;

/// Sums over the studies in each voxel of a block, and the statistics computed from them.
struct Sums {
  Block w, ww, wg, wgg;
  Block Q, tau2;
};

/// The studies' maps.
struct Studies {
  const float* const* g;
  const float* const* var;
  [[nodiscard]] Studies from(std::size_t study) const { return {g + study, var + study}; }
};

/// Adds w, w^2, w g and w g^2 of `studies` studies to the sums, w = 1/var.
template <std::size_t studies>
[[gnu::always_inline]] inline void add_group(const Studies& group, std::size_t begin, std::size_t n,
                                             Sums& __restrict sums) {
  INDEPENDENT for (std::size_t v = 0; v < n; ++v) {
    double w = sums.w[v], ww = sums.ww[v], wg = sums.wg[v], wgg = sums.wgg[v];
    UNROLLED for (std::size_t s = 0; s < studies; ++s) {
      const double effect = group.g[s][begin + v];
      const double weight = 1.0 / double(group.var[s][begin + v]);
      const double weighted = weight * effect;
      w += weight;
      ww += weight * weight;
      wg += weighted;
      wgg += weighted * effect;
    }
    sums.w[v] = w, sums.ww[v] = ww, sums.wg[v] = wg, sums.wgg[v] = wgg;
  }
}

WIDEST_VECTORS void add_studies(const Studies& all, std::size_t studies, std::size_t begin,
                                std::size_t n, Sums& sums) {
  std::size_t s = 0;
  for (; s + group_studies <= studies; s += group_studies)
    add_group<group_studies>(all.from(s), begin, n, sums);
  for (; s < studies; ++s) add_group<1>(all.from(s), begin, n, sums);
}

/// Adds up w and w g of `studies` studies, w = 1 / (var + tau2).
template <std::size_t studies>
[[gnu::always_inline]] inline void add_group_again(const Studies& group, std::size_t begin,
                                                   std::size_t n, Sums& __restrict sums) {
  INDEPENDENT for (std::size_t v = 0; v < n; ++v) {
    double w = sums.w[v], wg = sums.wg[v];
    UNROLLED for (std::size_t s = 0; s < studies; ++s) {
      const double weight = 1.0 / (double(group.var[s][begin + v]) + sums.tau2[v]);
      w += weight;
      wg += weight * double(group.g[s][begin + v]);
    }
    sums.w[v] = w, sums.wg[v] = wg;
  }
}

WIDEST_VECTORS void add_studies_again(const Studies& all, std::size_t studies, std::size_t begin,
                                      std::size_t n, Sums& sums) {
  std::fill(sums.w, sums.w + n, 0.0);
  std::fill(sums.wg, sums.wg + n, 0.0);
  std::size_t s = 0;
  for (; s + group_studies <= studies; s += group_studies)
    add_group_again<group_studies>(all.from(s), begin, n, sums);
  for (; s < studies; ++s) add_group_again<1>(all.from(s), begin, n, sums);
}

/// Q and tau2 from the sums.
WIDEST_VECTORS void heterogeneity(Sums& __restrict sums, std::size_t n, double df) {
  INDEPENDENT for (std::size_t v = 0; v < n; ++v) {
    const double q = sums.wgg[v] - sums.wg[v] * sums.wg[v] / sums.w[v];
    // The expected increase of Q per unit of tau2.
    const double scale = sums.w[v] - sums.ww[v] / sums.w[v];
    sums.Q[v] = q > 0 ? q : 0;
    sums.tau2[v] = q > df && scale > 0 ? (q - df) / scale : 0;
  }
}

/// Writes the results of a block whose first voxel is `begin`.
WIDEST_VECTORS void store(const Sums& sums, std::size_t begin, std::size_t n, double df,
                          const PooledMaps& maps) {
  float* __restrict z = maps.z + begin;
  for (std::size_t v = 0; v < n; ++v) z[v] = float(sums.wg[v] / std::sqrt(sums.w[v]));
  if (maps.g != nullptr)
    for (std::size_t v = 0; v < n; ++v) maps.g[begin + v] = float(sums.wg[v] / sums.w[v]);
  if (maps.var != nullptr)
    for (std::size_t v = 0; v < n; ++v) maps.var[begin + v] = float(1 / sums.w[v]);
  if (maps.tau2 != nullptr)
    for (std::size_t v = 0; v < n; ++v) maps.tau2[begin + v] = float(sums.tau2[v]);
  if (maps.Q != nullptr)
    for (std::size_t v = 0; v < n; ++v) maps.Q[begin + v] = float(sums.Q[v]);
  if (maps.I2 != nullptr)
    for (std::size_t v = 0; v < n; ++v)
      maps.I2[begin + v] = sums.Q[v] > df ? float(100 * (sums.Q[v] - df) / sums.Q[v]) : 0;
}

}  // namespace

void pool(std::span<const float* const> g, std::span<const float* const> var, std::size_t voxels,
          const PooledMaps& maps) {
  const std::size_t studies = g.size();
  const Studies all{g.data(), var.data()};
  const double df = double(studies) - 1;
  for (std::size_t begin = 0; begin < voxels; begin += block_voxels) {
    const std::size_t n = std::min(block_voxels, voxels - begin);
    Sums sums{};
    add_studies(all, studies, begin, n, sums);
    if (studies > 1) heterogeneity(sums, n, df);
    if (std::any_of(sums.tau2, sums.tau2 + n, [](double value) { return value > 0; }))
      add_studies_again(all, studies, begin, n, sums);
    store(sums, begin, n, df, maps);
  }
}

}  // namespace kvo::model
