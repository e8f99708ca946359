#include "engine/maps/sparse_map.h"

#include <algorithm>
#include <bit>
#include <limits>

namespace kvo::maps {

namespace {

constexpr std::size_t word_bits = std::numeric_limits<std::uint64_t>::digits;

std::span<const float> stretch_of(std::span<const float> values, std::size_t number) {
  const std::size_t begin = number * SparseMap::stretch;
  return values.subspan(begin, std::min(SparseMap::stretch, values.size() - begin));
}

bool all_zero(std::span<const float> values) {
  return std::all_of(values.begin(), values.end(), [](float value) { return value == 0; });
}

}  // namespace

SparseMap::SparseMap(std::span<const float> values) {
  const std::size_t stretches = (values.size() + stretch - 1) / stretch;
  kept_.resize((stretches + word_bits - 1) / word_bits);
  std::uint32_t count = 0;
  for (std::size_t i = 0; i < stretches; ++i) {
    if (i % word_bits == 0) before_.push_back(count);
    if (all_zero(stretch_of(values, i))) continue;
    kept_[i / word_bits] |= std::uint64_t{1} << i % word_bits;
    ++count;
  }
  values_.reserve(count * stretch);
  for (std::size_t i = 0; i < stretches; ++i) {
    const std::span<const float> of_stretch = stretch_of(values, i);
    if (!all_zero(of_stretch)) values_.insert(values_.end(), of_stretch.begin(), of_stretch.end());
  }
}

const float* SparseMap::values_of(std::size_t number) const {
  const std::uint64_t word = kept_[number / word_bits],
                      bit = std::uint64_t{1} << number % word_bits;
  if ((word & bit) == 0) return nullptr;
  const auto earlier = before_[number / word_bits] + std::size_t(std::popcount(word & (bit - 1)));
  return values_.data() + earlier * stretch;
}

bool SparseMap::copy(std::size_t begin, std::size_t voxels, float* to) const {
  bool any = false;
  for (std::size_t done = 0; done < voxels; done += stretch) {
    const float* values = values_of((begin + done) / stretch);
    if (values == nullptr && !any) continue;
    if (!any) std::fill_n(to, done, 0.0F);
    any = true;
    const std::size_t n = std::min(stretch, voxels - done);
    if (values != nullptr)
      std::copy_n(values, n, to + done);
    else
      std::fill_n(to + done, n, 0.0F);
  }
  return any;
}

}  // namespace kvo::maps
