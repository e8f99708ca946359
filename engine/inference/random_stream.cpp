#include "engine/inference/random_stream.h"

#include <bit>

namespace kvo::inference {

namespace {

std::uint64_t mixed(std::uint64_t x) {
  x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9ULL;
  x = (x ^ (x >> 27)) * 0x94D049BB133111EBULL;
  return x ^ (x >> 31);
}

constexpr std::uint64_t golden_gamma = 0x9E3779B97F4A7C15ULL;

}  // namespace

RandomStream::RandomStream(std::uint64_t seed, std::uint64_t randomization, std::uint64_t name_hash)
    : state_(mixed(mixed(mixed(seed + golden_gamma) ^ name_hash) + randomization * golden_gamma)) {}

std::uint64_t RandomStream::bits() {
  return mixed(state_ += golden_gamma);
}

std::uint32_t RandomStream::below(std::uint32_t limit) {
  return std::uint32_t(((bits() >> 32) * limit) >> 32);
}

std::uint64_t name_hash(const std::string& name) {
  std::uint64_t hash = 0xCBF29CE484222325ULL;
  for (const char c : name) hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001B3ULL;
  return hash;
}

std::uint64_t name_hash(const std::string& name, std::span<const double> numbers) {
  std::uint64_t hash = name_hash(name);
  for (const double number : numbers) hash = mixed(hash ^ std::bit_cast<std::uint64_t>(number));
  return hash;
}

}  // namespace kvo::inference
