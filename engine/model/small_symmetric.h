#pragma once

// Symmetric matrices of a few rows, as their lower triangle row by row: (0,0), (1,0), (1,1), (2,0)
// ...

#include <array>
#include <cmath>
#include <cstddef>

#include "engine/model/design.h"

namespace kvo::model {

constexpr std::size_t triangle_size(std::size_t rows) {
  return rows * (rows + 1) / 2;
}
constexpr std::size_t in_triangle(std::size_t i, std::size_t j) {
  return i >= j ? triangle_size(i) + j : triangle_size(j) + i;
}

using SmallSymmetric = std::array<double, triangle_size(max_terms + 1)>;
using SmallVector = std::array<double, max_terms + 1>;

/// The lower triangle L of a matrix that is L L'. Pivots that rounding leaves below 0 are set to 0,
/// and so are the values below them.
inline SmallSymmetric cholesky_of(const SmallSymmetric& matrix, std::size_t rows) {
  SmallSymmetric L{};
  for (std::size_t i = 0; i < rows; ++i)
    for (std::size_t j = 0; j <= i; ++j) {
      double value = matrix[in_triangle(i, j)];
      for (std::size_t m = 0; m < j; ++m) value -= L[in_triangle(i, m)] * L[in_triangle(j, m)];
      if (i == j)
        L[in_triangle(i, i)] = std::sqrt(value > 0 ? value : 0);
      else if (const double pivot = L[in_triangle(j, j)]; pivot > 0)
        L[in_triangle(i, j)] = value / pivot;
    }
  return L;
}

/// The inverse of a positive definite matrix.
inline SmallSymmetric inverse_of(const SmallSymmetric& matrix, std::size_t rows) {
  const SmallSymmetric L = cholesky_of(matrix, rows);
  SmallSymmetric below{};  // the inverse of L
  for (std::size_t i = 0; i < rows; ++i) {
    below[in_triangle(i, i)] = 1 / L[in_triangle(i, i)];
    for (std::size_t j = 0; j < i; ++j) {
      double sum = 0;
      for (std::size_t m = j; m < i; ++m) sum += L[in_triangle(i, m)] * below[in_triangle(m, j)];
      below[in_triangle(i, j)] = -sum * below[in_triangle(i, i)];
    }
  }
  SmallSymmetric inverse{};
  for (std::size_t i = 0; i < rows; ++i)
    for (std::size_t j = 0; j <= i; ++j)
      for (std::size_t m = i; m < rows; ++m)
        inverse[in_triangle(i, j)] += below[in_triangle(m, i)] * below[in_triangle(m, j)];
  return inverse;
}

/// x' A^-1 x of a positive definite matrix A.
inline double inverse_square(const SmallSymmetric& A, const SmallVector& x, std::size_t rows) {
  const SmallSymmetric L = cholesky_of(A, rows);
  SmallVector solved{};
  double sum = 0;
  for (std::size_t i = 0; i < rows; ++i) {
    solved[i] = x[i];
    for (std::size_t m = 0; m < i; ++m) solved[i] -= L[in_triangle(i, m)] * solved[m];
    solved[i] /= L[in_triangle(i, i)];
    sum += solved[i] * solved[i];
  }
  return sum;
}

/// A term's coefficient, from those of the design's basis.
inline double term_of(const Design& design, std::size_t t, const SmallVector& in_basis) {
  double sum = 0;
  for (std::size_t j = t; j < design.coefficients(); ++j)
    sum += design.back(Eigen::Index(t), Eigen::Index(j)) * in_basis[j];
  return sum;
}

/// Its variance, from the covariance of those.
inline double term_variance(const Design& design, std::size_t t, const SmallSymmetric& in_basis) {
  double sum = 0;
  for (std::size_t j = t; j < design.coefficients(); ++j)
    for (std::size_t k = t; k < design.coefficients(); ++k)
      sum += design.back(Eigen::Index(t), Eigen::Index(j)) *
             design.back(Eigen::Index(t), Eigen::Index(k)) * in_basis[in_triangle(j, k)];
  return sum;
}

}  // namespace kvo::model
