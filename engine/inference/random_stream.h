#pragma once

// Random numbers that depend only on what they are for: the seed of the meta-analysis, the
// randomization and a hash of what is drawn. Where the hash covers the data, meta-analyses with the
// same seed do not share the luck of the draw. (SplitMix64: Steele, Lea and Flood 2014.)

#include <cstdint>
#include <span>
#include <string>

#include "engine/inference/inference_layer.h"

namespace kvo::inference {

class RandomStream {
 public:
  RandomStream(std::uint64_t seed, std::uint64_t randomization, std::uint64_t name_hash);
  /// A whole number of at least 0 and below the limit, all equally likely to within 2^-32.
  std::uint32_t below(std::uint32_t limit);
  /// 64 bits, each 0 or 1.
  std::uint64_t bits();

 private:
  std::uint64_t state_;
};

/// A hash of a name that is the same everywhere (FNV-1a), and of numbers with it.
std::uint64_t name_hash(const std::string& name);
std::uint64_t name_hash(const std::string& name, std::span<const double> numbers);

}  // namespace kvo::inference
