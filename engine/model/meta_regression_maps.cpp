#include "engine/model/meta_regression.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "engine/base/vectors.h"
#include "engine/model/pooling.h"
#include "engine/model/small_symmetric.h"

namespace kvo::model {

namespace {

// The sums of a block stay in the first-level cache while all studies pass over them.
constexpr std::size_t block_voxels = 128;
/// The studies of a group pass over the sums together.
constexpr std::size_t group_studies = 4;
constexpr std::size_t most_coefficients = max_terms + 1;

using Block = double[block_voxels];
using Triangle = Block[triangle_size(most_coefficients)];

/// Sums over the studies in the basis Z of the design, the weights W being 1/(var + tau2).
struct Sums {
  Triangle A;                  ///< Z'WZ
  Triangle B;                  ///< Z'WWZ
  Block b[most_coefficients];  ///< Z'Wy
  Block c;                     ///< y'Wy
  Block Q, tau2;
};

/// The studies' maps and their rows of the design. After the last study come rows of zeros that
/// fill the last group.
struct Studies {
  std::size_t count, coefficients;
  const float *const *g, *const *var;
  /// A row for each study: the basis of the design, and the products of its values i and j <= i:
  /// (0,0), (1,0), (1,1), (2,0) ...
  std::vector<double> basis, products;
};

/// w, w^2, w y and w y^2 of the studies of a group in the voxels of a block.
struct Weights {
  Block w[group_studies], ww[group_studies], wy[group_studies], wyy[group_studies];
};

[[gnu::always_inline]] inline void weigh(const Studies& all, std::size_t first, std::size_t begin,
                                         const double* __restrict tau2, std::size_t n,
                                         Weights& __restrict weights) {
  for (std::size_t s = 0; s < group_studies && first + s < all.count; ++s) {
    const float* __restrict g = all.g[first + s] + begin;
    const float* __restrict var = all.var[first + s] + begin;
    INDEPENDENT for (std::size_t v = 0; v < n; ++v) {
      const double effect = g[v], w = 1.0 / (double(var[v]) + tau2[v]);
      weights.w[s][v] = w;
      weights.ww[s][v] = w * w;
      weights.wy[s][v] = w * effect;
      weights.wyy[s][v] = w * effect * effect;
    }
  }
}

/// Adds the studies of a group to each of the sums, each study with its weights times a factor; the
/// factors of one study are adjacent.
[[gnu::always_inline]] inline void add_group(const Block* __restrict weights, const double* factors,
                                             std::size_t sums, std::size_t n,
                                             Block* __restrict to) {
  static_assert(group_studies == 4);
  for (std::size_t m = 0; m < sums; ++m) {
    const double f0 = factors[m], f1 = factors[sums + m], f2 = factors[2 * sums + m],
                 f3 = factors[3 * sums + m];
    INDEPENDENT for (std::size_t v = 0; v < n; ++v) to[m][v] =
        to[m][v] + weights[0][v] * f0 + weights[1][v] * f1 + weights[2][v] * f2 +
        weights[3][v] * f3;
  }
}

/// Computes the sums anew, with the tau2 among them; B and c only if `all_sums`.
[[gnu::always_inline]] inline void add_up(bool all_sums, const Studies& all, std::size_t begin,
                                          std::size_t n, Sums& sums) {
  const std::size_t p = all.coefficients, pairs = triangle_size(p);
  const double ones[group_studies] = {1, 1, 1, 1};
  for (std::size_t m = 0; m < pairs; ++m) std::fill(sums.A[m], sums.A[m] + n, 0.0);
  for (std::size_t i = 0; i < p; ++i) std::fill(sums.b[i], sums.b[i] + n, 0.0);
  for (std::size_t m = 0; all_sums && m < pairs; ++m) std::fill(sums.B[m], sums.B[m] + n, 0.0);
  if (all_sums) std::fill(sums.c, sums.c + n, 0.0);
  Weights weights;
  for (std::size_t s = 0; s < all.count; s += group_studies) {
    if (s + group_studies > all.count) weights = {};
    weigh(all, s, begin, sums.tau2, n, weights);
    add_group(weights.w, &all.products[s * pairs], pairs, n, sums.A);
    add_group(weights.wy, &all.basis[s * p], p, n, sums.b);
    if (!all_sums) continue;
    add_group(weights.ww, &all.products[s * pairs], pairs, n, sums.B);
    add_group(weights.wyy, ones, 1, n, &sums.c);
  }
}

/// In each voxel, to -= x y.
[[gnu::always_inline]] inline void subtract_product(const Block& __restrict x,
                                                    const Block& __restrict y, std::size_t n,
                                                    Block& __restrict to) {
  INDEPENDENT for (std::size_t v = 0; v < n; ++v) to[v] -= x[v] * y[v];
}

/// Factors each voxel's A into L D L', where L has a diagonal of 1. The triangle then holds L below
/// the diagonal and D on it. b becomes L^-1 b.
[[gnu::always_inline]] inline void factor(std::size_t p, std::size_t n, Sums& __restrict sums) {
  for (std::size_t i = 0; i < p; ++i) {
    // Row i of L D; row j has already been divided by D.
    Block* const L_i = &sums.A[in_triangle(i, 0)];
    for (std::size_t j = 0; j < i; ++j)
      for (std::size_t m = 0; m < j; ++m)
        subtract_product(L_i[m], sums.A[in_triangle(j, m)], n, L_i[j]);
    for (std::size_t j = 0; j < i; ++j) {
      const double *D = sums.A[in_triangle(j, j)], *b = sums.b[j];
      INDEPENDENT for (std::size_t v = 0; v < n; ++v) {
        const double times_D = L_i[j][v], value = times_D / D[v];
        L_i[j][v] = value;
        L_i[i][v] -= times_D * value;
        sums.b[i][v] -= value * b[v];
      }
    }
  }
}

/// QE and tau2 of the block from its factored sums.
[[gnu::always_inline]] inline void heterogeneity(std::size_t p, std::size_t n, double df,
                                                 Sums& __restrict sums) {
  Block scale, square, minus_cross;
  Triangle inverse;  // of L
  std::copy(sums.c, sums.c + n, sums.Q);
  std::copy(sums.A[0], sums.A[0] + n, scale);
  for (std::size_t i = 0; i < p; ++i) {
    const double *D = sums.A[in_triangle(i, i)], *b = sums.b[i];
    Block* const inverse_i = &inverse[in_triangle(i, 0)];
    for (std::size_t j = 0; j <= i; ++j) {
      std::fill(inverse_i[j], inverse_i[j] + n, i == j ? 1.0 : 0.0);
      for (std::size_t m = j; m < i; ++m)
        subtract_product(sums.A[in_triangle(i, m)], inverse[in_triangle(m, j)], n, inverse_i[j]);
    }
    std::fill(square, square + n, 0.0);
    // The trace of A^-1 B is that of D^-1 (L^-1 B L^-1').
    for (std::size_t j = 0; j <= i; ++j) {
      std::fill(minus_cross, minus_cross + n, 0.0);
      for (std::size_t m = 0; m < j; ++m)
        subtract_product(inverse_i[m], sums.B[in_triangle(j, m)], n, minus_cross);
      const double* B = sums.B[in_triangle(j, j)];
      INDEPENDENT for (std::size_t v = 0; v < n; ++v) square[v] +=
          inverse_i[j][v] * (inverse_i[j][v] * B[v] - 2 * minus_cross[v]);
    }
    INDEPENDENT for (std::size_t v = 0; v < n; ++v) {
      sums.Q[v] -= b[v] * b[v] / D[v];
      scale[v] -= square[v] / D[v];
    }
  }
  INDEPENDENT for (std::size_t v = 0; v < n; ++v) {
    sums.Q[v] = sums.Q[v] > 0 ? sums.Q[v] : 0;
    sums.tau2[v] = sums.Q[v] > df && scale[v] > 0 ? (sums.Q[v] - df) / scale[v] : 0;
  }
}

/// The results of a block: the estimates and variances of the coefficients, and the heterogeneity.
struct Results {
  Block g[most_coefficients], var[most_coefficients];
  const double *Q, *tau2;
  double df;
};

/// Estimates and variances of the coefficients of the block: where A = L D L' and t is a row of
/// the matrix that leads back to the terms, s = L^-1 t' gives the estimate s' D^-1 (L^-1 b) and the
/// variance s' D^-1 s.
[[gnu::always_inline]] inline void estimate(const Design& design, std::size_t n,
                                            const Sums& __restrict sums,
                                            Results& __restrict results) {
  const std::size_t p = design.coefficients();
  Block s[most_coefficients];
  for (std::size_t j = 0; j < p; ++j) {
    std::fill(results.g[j], results.g[j] + n, 0.0);
    std::fill(results.var[j], results.var[j] + n, 0.0);
    for (std::size_t i = j; i < p; ++i) {
      std::fill(s[i], s[i] + n, design.back(Eigen::Index(j), Eigen::Index(i)));
      for (std::size_t m = j; m < i; ++m)
        subtract_product(sums.A[in_triangle(i, m)], s[m], n, s[i]);
      const double *D = sums.A[in_triangle(i, i)], *b = sums.b[i];
      INDEPENDENT for (std::size_t v = 0; v < n; ++v) {
        const double scaled = s[i][v] / D[v];
        results.g[j][v] += scaled * b[v];
        results.var[j][v] += scaled * s[i][v];
      }
    }
  }
}

/// Writes the results of a block whose first voxel is `begin`.
WIDEST_VECTORS void store(const Results& block, std::size_t begin, std::size_t n,
                          const ModelMaps& maps) {
  for (std::size_t j = 0; j < maps.z.size(); ++j) {
    const double *g = block.g[j], *var = block.var[j];
    float* __restrict z = maps.z[j] + begin;
    for (std::size_t v = 0; v < n; ++v) z[v] = float(g[v] / std::sqrt(var[v]));
    if (!maps.g.empty()) std::copy(g, g + n, maps.g[j] + begin);
    if (!maps.var.empty()) std::copy(var, var + n, maps.var[j] + begin);
  }
  if (maps.tau2 != nullptr) std::copy(block.tau2, block.tau2 + n, maps.tau2 + begin);
  if (maps.Q != nullptr) std::copy(block.Q, block.Q + n, maps.Q + begin);
  if (maps.I2 == nullptr) return;
  for (std::size_t v = 0; v < n; ++v) {
    const double excess = block.Q[v] - block.df;
    maps.I2[begin + v] = excess > 0 ? float(100 * excess / block.Q[v]) : 0;
  }
}

WIDEST_VECTORS void fit_block(const Design& design, const Studies& all, std::size_t begin,
                              std::size_t n, const ModelMaps& maps) {
  const std::size_t p = all.coefficients;
  const double df = double(all.count) - double(p);
  Sums sums;
  std::fill(sums.Q, sums.Q + n, 0.0);
  std::fill(sums.tau2, sums.tau2 + n, 0.0);
  add_up(true, all, begin, n, sums);
  factor(p, n, sums);
  if (df > 0) heterogeneity(p, n, df, sums);
  if (std::any_of(sums.tau2, sums.tau2 + n, [](double value) { return value > 0; })) {
    add_up(false, all, begin, n, sums);
    factor(p, n, sums);
  }
  Results results;
  results.Q = sums.Q, results.tau2 = sums.tau2, results.df = df;
  estimate(design, n, sums, results);
  store(results, begin, n, maps);
}

}  // namespace

void fit_model_maps(const Design& design, std::span<const float* const> effects,
                    std::span<const float* const> variances, std::size_t voxels,
                    const ModelMaps& maps) {
  if (design.coefficients() == 1)
    return pool(effects, variances, voxels,
                {.z = maps.z[0],
                 .g = maps.g.empty() ? nullptr : maps.g[0],
                 .var = maps.var.empty() ? nullptr : maps.var[0],
                 .tau2 = maps.tau2,
                 .I2 = maps.I2,
                 .Q = maps.Q});
  const std::size_t k = design.studies(), p = design.coefficients();
  Studies all{k, p, effects.data(), variances.data(), {}, {}};
  for (std::size_t s = 0; s < k; ++s)
    for (std::size_t i = 0; i < p; ++i) {
      const double value = design.basis(Eigen::Index(s), Eigen::Index(i));
      all.basis.push_back(value);
      for (std::size_t j = 0; j <= i; ++j)
        all.products.push_back(value * design.basis(Eigen::Index(s), Eigen::Index(j)));
    }
  all.basis.resize((k + group_studies) * p);
  all.products.resize((k + group_studies) * triangle_size(p));
  for (std::size_t begin = 0; begin < voxels; begin += block_voxels)
    fit_block(design, all, begin, std::min(block_voxels, voxels - begin), maps);
}

}  // namespace kvo::model
