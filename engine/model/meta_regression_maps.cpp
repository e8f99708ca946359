#include "engine/model/meta_regression.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "engine/base/vectors.h"
#include "engine/model/pooling.h"

namespace kvo::model {

namespace {

// The sums of a block stay in the first-level cache while all studies pass over them.
constexpr std::size_t block_voxels = 128;
/// The studies of a group pass over the sums together.
constexpr std::size_t group_studies = 4;

using Maps = const float* const*;
using Block = double[block_voxels];

/// Values of a lower triangle, row by row.
constexpr std::size_t triangle(std::size_t rows) {
  return rows * (rows + 1) / 2;
}
constexpr std::size_t at(std::size_t i, std::size_t j) {
  return triangle(i) + j;
}

/// Sums over the studies in the basis Z of the design, for p coefficients.
template <std::size_t p>
struct Sums {
  Block A[triangle(p)];  ///< Z'WZ
  Block B[triangle(p)];  ///< Z'WWZ
  Block b[p];            ///< Z'Wy
  Block c;               ///< y'Wy
  Block Q, tau2;
};

/// The studies' maps and the rows of the design that belong to them.
struct Studies {
  Maps g, var;
  const double* basis;  ///< of the design, a row for each study
  /// Of the basis values i and j <= i of each row: (0,0), (1,0), (1,1), (2,0) ...
  const double* products;
  [[nodiscard]] Studies from(std::size_t study, std::size_t p) const {
    return {g + study, var + study, basis + study * p, products + study * triangle(p)};
  }
};

/// Adds the studies of a group to all sums, with w = 1/var.
template <std::size_t p, std::size_t studies>
[[gnu::always_inline]] inline void add_group(const Studies& group, std::size_t begin, std::size_t n,
                                             Sums<p>& __restrict sums) {
  const double* __restrict basis = group.basis, * __restrict products = group.products;
  constexpr std::size_t pairs = triangle(p);
  INDEPENDENT for (std::size_t v = 0; v < n; ++v) {
    double A[pairs], B[pairs], b[p], c = sums.c[v];
    UNROLLED for (std::size_t m = 0; m < pairs; ++m) A[m] = sums.A[m][v], B[m] = sums.B[m][v];
    UNROLLED for (std::size_t i = 0; i < p; ++i) b[i] = sums.b[i][v];
    UNROLLED for (std::size_t s = 0; s < studies; ++s) {
      const double effect = group.g[s][begin + v];
      const double w = 1.0 / double(group.var[s][begin + v]);
      const double ww = w * w, wy = w * effect;
      UNROLLED for (std::size_t m = 0; m < pairs; ++m) {
        A[m] += w * products[s * pairs + m];
        B[m] += ww * products[s * pairs + m];
      }
      UNROLLED for (std::size_t i = 0; i < p; ++i) b[i] += wy * basis[s * p + i];
      c += wy * effect;
    }
    UNROLLED for (std::size_t m = 0; m < pairs; ++m) sums.A[m][v] = A[m], sums.B[m][v] = B[m];
    UNROLLED for (std::size_t i = 0; i < p; ++i) sums.b[i][v] = b[i];
    sums.c[v] = c;
  }
}

/// Adds the studies of a group to A and b, with w = 1/(var + tau2).
template <std::size_t p, std::size_t studies>
[[gnu::always_inline]] inline void add_group_again(const Studies& group, std::size_t begin,
                                                   std::size_t n, Sums<p>& __restrict sums) {
  const double* __restrict basis = group.basis, * __restrict products = group.products;
  constexpr std::size_t pairs = triangle(p);
  INDEPENDENT for (std::size_t v = 0; v < n; ++v) {
    double A[pairs], b[p];
    UNROLLED for (std::size_t m = 0; m < pairs; ++m) A[m] = sums.A[m][v];
    UNROLLED for (std::size_t i = 0; i < p; ++i) b[i] = sums.b[i][v];
    UNROLLED for (std::size_t s = 0; s < studies; ++s) {
      const double w = 1.0 / (double(group.var[s][begin + v]) + sums.tau2[v]);
      const double wy = w * double(group.g[s][begin + v]);
      UNROLLED for (std::size_t m = 0; m < pairs; ++m) A[m] += w * products[s * pairs + m];
      UNROLLED for (std::size_t i = 0; i < p; ++i) b[i] += wy * basis[s * p + i];
    }
    UNROLLED for (std::size_t m = 0; m < pairs; ++m) sums.A[m][v] = A[m];
    UNROLLED for (std::size_t i = 0; i < p; ++i) sums.b[i][v] = b[i];
  }
}

/// A voxel's A = L D L', L with a diagonal of 1; below it, L stands in the triangle and D on its
/// diagonal. b becomes L^-1 b.
template <std::size_t p>
struct Factored {
  double L[triangle(p)], b[p];

  [[nodiscard]] [[gnu::always_inline]] double D(std::size_t i) const { return L[at(i, i)]; }
};

template <std::size_t p>
[[gnu::always_inline]] inline Factored<p> factored_at(const Sums<p>& sums, std::size_t v) {
  constexpr std::size_t pairs = triangle(p);
  Factored<p> voxel;
  double *L = voxel.L, *b = voxel.b;
  UNROLLED for (std::size_t m = 0; m < pairs; ++m) L[m] = sums.A[m][v];
  UNROLLED for (std::size_t i = 0; i < p; ++i) b[i] = sums.b[i][v];
  UNROLLED for (std::size_t i = 0; i < p; ++i) {
    // Row i of L D; row j has already been divided by D.
    UNROLLED for (std::size_t j = 0; j < i; ++j) {
      UNROLLED for (std::size_t m = 0; m < j; ++m) L[at(i, j)] -= L[at(i, m)] * L[at(j, m)];
    }
    UNROLLED for (std::size_t j = 0; j < i; ++j) {
      const double times_D = L[at(i, j)];
      L[at(i, j)] = times_D / L[at(j, j)];
      L[at(i, i)] -= times_D * L[at(i, j)];
      b[i] -= L[at(i, j)] * b[j];
    }
  }
  return voxel;
}

/// QE and tau2 of the block from its sums.
template <std::size_t p>
[[gnu::always_inline]] inline void heterogeneity(Sums<p>& __restrict sums, std::size_t n,
                                                 double df) {
  INDEPENDENT for (std::size_t v = 0; v < n; ++v) {
    const Factored<p> factored = factored_at(sums, v);
    double Q = sums.c[v], scale = sums.A[0][v];
    double inverse[triangle(p)];  // of L
    UNROLLED for (std::size_t i = 0; i < p; ++i) {
      Q -= factored.b[i] * factored.b[i] / factored.D(i);
      inverse[at(i, i)] = 1;
      UNROLLED for (std::size_t j = 0; j < i; ++j) {
        inverse[at(i, j)] = -factored.L[at(i, j)];
        UNROLLED for (std::size_t m = j + 1; m < i; ++m) {
          inverse[at(i, j)] -= factored.L[at(i, m)] * inverse[at(m, j)];
        }
      }
      // The trace of A^-1 B is that of D^-1 (L^-1 B L^-1').
      double square = 0;
      UNROLLED for (std::size_t j = 0; j <= i; ++j) {
        double cross = 0;
        UNROLLED for (std::size_t m = 0; m < j; ++m) {
          cross += inverse[at(i, m)] * sums.B[at(j, m)][v];
        }
        square += inverse[at(i, j)] * (2 * cross + inverse[at(i, j)] * sums.B[at(j, j)][v]);
      }
      scale -= square / factored.D(i);
    }
    sums.Q[v] = Q > 0 ? Q : 0;
    sums.tau2[v] = Q > df && scale > 0 ? (Q - df) / scale : 0;
  }
}

/// Estimates and variances of the coefficients of the block: where A = L D L' and t is a row of
/// the matrix that leads back to the terms, s = L^-1 t' gives the estimate s' D^-1 (L^-1 b) and the
/// variance s' D^-1 s.
template <std::size_t p>
[[gnu::always_inline]] inline void estimate(const Sums<p>& __restrict sums,
                                            const double (&back)[p][p], std::size_t n,
                                            Block* __restrict g, Block* __restrict var) {
  INDEPENDENT for (std::size_t v = 0; v < n; ++v) {
    const Factored<p> factored = factored_at(sums, v);
    UNROLLED for (std::size_t j = 0; j < p; ++j) {
      double s[p], value = 0, square = 0;
      UNROLLED for (std::size_t i = j; i < p; ++i) {
        s[i] = back[j][i];
        UNROLLED for (std::size_t m = j; m < i; ++m) s[i] -= factored.L[at(i, m)] * s[m];
        const double scaled = s[i] / factored.D(i);
        value += scaled * factored.b[i];
        square += scaled * s[i];
      }
      g[j][v] = value;
      var[j][v] = square;
    }
  }
}

/// The results of a block: the estimates and variances of the coefficients, and the heterogeneity.
struct Results {
  const Block *g, *var;
  const double *Q, *tau2;
  double df;
};

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

template <std::size_t p>
[[gnu::always_inline]] inline void fit_blocks(const Design& design, const Studies& all,
                                              std::size_t voxels, const ModelMaps& maps) {
  const std::size_t studies = design.studies();
  const double df = double(studies) - double(p);
  double back[p][p];
  for (std::size_t i = 0; i < p; ++i)
    for (std::size_t j = 0; j < p; ++j) back[i][j] = design.back(Eigen::Index(i), Eigen::Index(j));
  for (std::size_t begin = 0; begin < voxels; begin += block_voxels) {
    const std::size_t n = std::min(block_voxels, voxels - begin);
    Sums<p> sums{};
    std::size_t s = 0;
    for (; s + group_studies <= studies; s += group_studies)
      add_group<p, group_studies>(all.from(s, p), begin, n, sums);
    for (; s < studies; ++s) add_group<p, 1>(all.from(s, p), begin, n, sums);
    if (studies > p) heterogeneity(sums, n, df);
    if (std::any_of(sums.tau2, sums.tau2 + n, [](double value) { return value > 0; })) {
      for (Block& sum : sums.A) std::fill(sum, sum + n, 0.0);
      for (Block& sum : sums.b) std::fill(sum, sum + n, 0.0);
      for (s = 0; s + group_studies <= studies; s += group_studies)
        add_group_again<p, group_studies>(all.from(s, p), begin, n, sums);
      for (; s < studies; ++s) add_group_again<p, 1>(all.from(s, p), begin, n, sums);
    }
    Block g[p], var[p];
    estimate(sums, back, n, g, var);
    store({g, var, sums.Q, sums.tau2, df}, begin, n, maps);
  }
}

WIDEST_VECTORS void fit(const Design& design, const Studies& all, std::size_t voxels,
                        const ModelMaps& maps) {
  switch (design.coefficients()) {
    case 2:
      return fit_blocks<2>(design, all, voxels, maps);
    case 3:
      return fit_blocks<3>(design, all, voxels, maps);
    case 4:
      return fit_blocks<4>(design, all, voxels, maps);
    default:
      return fit_blocks<max_terms + 1>(design, all, voxels, maps);
  }
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
  const auto k = Eigen::Index(design.studies()), p = Eigen::Index(design.coefficients());
  std::vector<double> basis, products;
  for (Eigen::Index s = 0; s < k; ++s)
    for (Eigen::Index i = 0; i < p; ++i) {
      basis.push_back(design.basis(s, i));
      for (Eigen::Index j = 0; j <= i; ++j)
        products.push_back(design.basis(s, i) * design.basis(s, j));
    }
  fit(design, {effects.data(), variances.data(), basis.data(), products.data()}, voxels, maps);
}

}  // namespace kvo::model
