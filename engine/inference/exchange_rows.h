#pragma once

// What is exchanged: rows of numbers for the studies, whose products with their maps are z values.

#include <Eigen/Core>
#include <cstdint>

#include "engine/inference/exchange.h"

namespace kvo::inference {

class ExchangeRows {
 public:
  explicit ExchangeRows(const ExchangeRequest& request);

  /// Writes the numbers of an exchange, one for each study; exchange 0 leaves everything as it is.
  /// They are orthogonal to the others().
  void write(std::size_t number, float* row) const;

  [[nodiscard]] std::size_t studies() const { return std::size_t(column_.size()); }
  /// The number of ways to exchange the studies.
  [[nodiscard]] double ways() const { return ways_; }
  [[nodiscard]] const Eigen::VectorXd& roots() const { return roots_; }
  /// An orthonormal basis of the other columns times the roots of the weights.
  [[nodiscard]] const Eigen::MatrixXd& others() const { return others_; }
  [[nodiscard]] bool flips() const { return flips_; }

 private:
  std::uint64_t seed_, hash_;
  bool flips_;
  double ways_;
  Eigen::VectorXd roots_, column_;
  Eigen::MatrixXd others_;
};

}  // namespace kvo::inference
