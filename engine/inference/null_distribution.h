#pragma once

// The null distribution of a map's z values: what they would be if the studies' peaks lay anywhere.
//
// The null values are not kept. Each is counted twice: among the sorted z values of the map itself,
// which makes every p value exact, and in bins of 1/1024, from which the quantiles come. So memory
// does not depend on the number of randomizations, and counts do not depend on the order in which
// threads arrive.

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "engine/inference/inference_layer.h"

namespace kvo::inference {

/// The side of the distribution that a p value refers to.
enum class Tail { positive, negative };

/// The counts of one thread.
struct NullCounts {
  std::vector<std::uint64_t> by_rank, by_bin;
};

class NullDistribution {
 public:
  NullDistribution(const std::vector<float>& observed, std::size_t threads);

  /// Counts null values. Safe for different threads at once.
  void count(std::span<const float> values, std::size_t thread);

  /// Combines the threads' counts; must be called once, after the last count().
  void finish();

  /// All the counts, after finish().
  [[nodiscard]] const NullCounts& counts() const { return threads_.front(); }
  /// Adds, before finish(), counts of the same distribution made elsewhere.
  void add(const NullCounts& counts);

  [[nodiscard]] std::uint64_t values() const { return values_; }

  /// For each observed value (1 + null values at least as large) / (1 + null values): one-tailed;
  /// for the negative tail, with those at least as small.
  [[nodiscard]] std::vector<float> p(Tail tail) const;

  /// The smallest multiple of 1/1024 such that at most that share of the null values lies at or
  /// above it; for the negative tail, the largest such that at most that share lies below it.
  [[nodiscard]] double quantile(double share, Tail tail) const;

  /// The shares whose quantiles are stored: 0.5, 0.4, 0.3, 0.2, and twenty for each decade from 0.1
  /// to 1e-7.
  static const std::vector<double>& stored_shares();

 private:
  std::vector<float> observed_, sorted_;
  std::vector<std::uint32_t> bin_begin_;  ///< first sorted value of each bin, and their number
  std::vector<NullCounts> threads_;
  std::uint64_t values_ = 0;
};

}  // namespace kvo::inference
