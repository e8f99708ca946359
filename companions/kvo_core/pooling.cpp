#include "companions/kvo_core/pooling.h"

#include <algorithm>
#include <cmath>

// Wider vectors where the processor has them. Products and sums are never fused, so each voxel gets
// the same value with any of the variants. The sanitizers cannot start before the choice is made.
#if defined(__SANITIZE_ADDRESS__)
#define WIDEST_VECTORS
#else
#define WIDEST_VECTORS [[gnu::target_clones("default", "arch=x86-64-v3", "arch=x86-64-v4")]]
#endif

namespace {

// The sums of a block stay in the first-level cache while all studies pass over them.
constexpr std::size_t block_voxels = 256;

using Sums = double[block_voxels];

/// Adds up w, w^2, w g and w g^2 of one study, w = 1/var.
WIDEST_VECTORS void add_study(const float* __restrict g, const float* __restrict var, std::size_t n,
                              double* __restrict sw, double* __restrict sww, double* __restrict swg,
                              double* __restrict swgg) {
  for (std::size_t v = 0; v < n; ++v) {
    const double effect = g[v];
    const double weight = 1.0 / double(var[v]);
    const double weighted = weight * effect;
    sw[v] += weight;
    sww[v] += weight * weight;
    swg[v] += weighted;
    swgg[v] += weighted * effect;
  }
}

/// Adds up w and w g of one study, w = 1 / (var + tau2).
WIDEST_VECTORS void add_study_again(const float* __restrict g, const float* __restrict var,
                                    const double* __restrict tau2, std::size_t n,
                                    double* __restrict sw, double* __restrict swg) {
  for (std::size_t v = 0; v < n; ++v) {
    const double weight = 1.0 / (double(var[v]) + tau2[v]);
    sw[v] += weight;
    swg[v] += weight * double(g[v]);
  }
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

template <typename Value>
void store(float* to, std::size_t n, const Value& value) {
  if (to == nullptr) return;
  for (std::size_t v = 0; v < n; ++v) to[v] = float(value(v));
}

/// The part of an array that begins at a block.
float* from_block(float* array, std::size_t begin) {
  return array == nullptr ? nullptr : array + begin;
}

}  // namespace

void pool(std::span<const float* const> g, std::span<const float* const> var, std::size_t voxels,
          const PooledMaps& maps) {
  const std::size_t studies = g.size();
  const double df = double(studies) - 1;
  for (std::size_t begin = 0; begin < voxels; begin += block_voxels) {
    const std::size_t n = std::min(block_voxels, voxels - begin);
    Sums sw{}, sww{}, swg{}, swgg{}, Q{}, tau2{};
    for (std::size_t s = 0; s < studies; ++s)
      add_study(g[s] + begin, var[s] + begin, n, sw, sww, swg, swgg);
    if (studies > 1) heterogeneity(sw, sww, swg, swgg, n, df, Q, tau2);
    if (std::any_of(tau2, tau2 + n, [](double value) { return value > 0; })) {
      std::fill(sw, sw + n, 0.0);
      std::fill(swg, swg + n, 0.0);
      for (std::size_t s = 0; s < studies; ++s)
        add_study_again(g[s] + begin, var[s] + begin, tau2, n, sw, swg);
    }
    store(from_block(maps.z, begin), n, [&](std::size_t v) { return swg[v] / std::sqrt(sw[v]); });
    store(from_block(maps.g, begin), n, [&](std::size_t v) { return swg[v] / sw[v]; });
    store(from_block(maps.var, begin), n, [&](std::size_t v) { return 1 / sw[v]; });
    store(from_block(maps.tau2, begin), n, [&](std::size_t v) { return tau2[v]; });
    store(from_block(maps.Q, begin), n, [&](std::size_t v) { return Q[v]; });
    store(from_block(maps.I2, begin), n,
          [&](std::size_t v) { return Q[v] > df ? 100 * (Q[v] - df) / Q[v] : 0; });
  }
}
