#pragma once

// The design of a linear model of the studies: the terms of the model and whether they are
// identifiable.

#include <Eigen/Core>
#include <cstddef>
#include <span>
#include <string>
#include <vector>

#include "engine/model/model_layer.h"

namespace kvo::model {

inline constexpr std::size_t max_terms = 4;

/// A variable of a model, with a value for each study.
struct Term {
  std::string name;
  std::vector<double> values;
};

/// An intercept and up to max_terms terms.
struct Design {
  /// A row for each study: 1, and the values of the terms.
  Eigen::MatrixXd columns;
  /// An orthogonal basis of the columns; its first column is 1 too.
  Eigen::MatrixXd basis;
  /// Turns coefficients of the basis into those of the terms; upper triangular.
  Eigen::MatrixXd back;

  [[nodiscard]] std::size_t studies() const { return std::size_t(columns.rows()); }
  [[nodiscard]] std::size_t coefficients() const { return std::size_t(columns.cols()); }
};

/// The design of these terms, if any, for this number of studies. Throws Refusal, naming the term,
/// when there are more than max_terms, a term occurs twice, has the same value in all the studies
/// or follows from the terms before it, or when no study is left over to estimate the residual
/// heterogeneity from (with no term, one study is enough).
Design make_design(std::span<const Term> terms, std::size_t studies);

}  // namespace kvo::model
