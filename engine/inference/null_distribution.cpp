#include "engine/inference/null_distribution.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numeric>

#include "engine/base/text_file.h"

namespace kvo::inference {

namespace {

constexpr int bins_per_unit = 1024;
constexpr int max_z = 64;
constexpr std::size_t bins = std::size_t(2) * max_z * bins_per_unit;

/// The bin of a value, the outermost one for values beyond; never falls as the value rises.
std::size_t bin_of(float value) {
  const float position =
      std::clamp((value + float(max_z)) * float(bins_per_unit), 0.0F, float(bins - 1));
  return std::size_t(position);
}

/// How many of `count` sorted numbers are not above the value. Without branches, because they would
/// be unpredictable.
std::size_t not_above(const float* sorted, std::size_t count, float value) {
  const float* first = sorted;
  for (; count > 1; count -= count / 2)
    first += count / 2 * std::size_t(first[count / 2 - 1] <= value);
  return std::size_t(first - sorted) + (count == 1 && *first <= value ? 1 : 0);
}

double bin_edge(std::size_t bin) {
  return double(bin) / bins_per_unit - max_z;
}

}  // namespace

NullDistribution::NullDistribution(const std::vector<float>& observed, std::size_t threads)
    : observed_(observed), sorted_(observed), bin_begin_(bins + 1), threads_(threads) {
  std::sort(sorted_.begin(), sorted_.end());
  for (const float value : sorted_) ++bin_begin_[bin_of(value) + 1];
  for (std::size_t bin = 0; bin < bins; ++bin) bin_begin_[bin + 1] += bin_begin_[bin];
  for (NullCounts& counts : threads_) {
    counts.by_rank.resize(2 * sorted_.size() + 1);
    counts.by_bin.resize(bins);
  }
}

void NullDistribution::count(std::span<const float> values, std::size_t thread) {
  NullCounts& counts = threads_[thread];
  for (const float value : values) {
    const std::size_t bin = bin_of(value);
    ++counts.by_bin[bin];
    // Its rank is the number of observed values not above it; only those of its own bin are not yet
    // known.
    const std::size_t begin = bin_begin_[bin], in_bin = bin_begin_[bin + 1] - begin;
    const std::size_t rank = begin + not_above(sorted_.data() + begin, in_bin, value);
    // Twice the rank, and one less if it equals an observed value: it then counts in both tails.
    const bool equal = rank > 0 && sorted_[rank - 1] == value;
    ++counts.by_rank[2 * rank - (equal ? 1 : 0)];
  }
}

void NullDistribution::add(const NullCounts& counts) {
  NullCounts& all = threads_.front();
  for (std::size_t i = 0; i < all.by_rank.size(); ++i) all.by_rank[i] += counts.by_rank[i];
  for (std::size_t i = 0; i < all.by_bin.size(); ++i) all.by_bin[i] += counts.by_bin[i];
}

void NullDistribution::finish() {
  for (std::size_t t = 1; t < threads_.size(); ++t) add(threads_[t]);
  threads_.resize(1);
  for (const std::uint64_t count : counts().by_bin) values_ += count;
}

std::vector<float> NullDistribution::p(Tail tail) const {
  std::vector<std::uint64_t> beyond = threads_.front().by_rank;
  if (tail == Tail::positive)
    std::partial_sum(beyond.rbegin(), beyond.rend(), beyond.rbegin());
  else
    std::partial_sum(beyond.begin(), beyond.end(), beyond.begin());
  std::vector<float> p;
  p.reserve(observed_.size());
  for (const float value : observed_) {
    const auto rank = std::upper_bound(sorted_.begin(), sorted_.end(), value) - sorted_.begin();
    const std::uint64_t count = beyond[2 * std::size_t(rank) - 1];
    p.push_back(float((1.0 + double(count)) / (1.0 + double(values_))));
  }
  return p;
}

double NullDistribution::quantile(double share, Tail tail) const {
  const std::vector<std::uint64_t>& counts = threads_.front().by_bin;
  const double most = share * double(values_);
  std::uint64_t beyond = 0;
  if (tail == Tail::negative) {
    std::size_t bin = 0;
    while (bin < bins && double(beyond + counts[bin]) <= most) beyond += counts[bin++];
    return bin_edge(bin);
  }
  std::size_t bin = bins;
  while (bin > 0 && double(beyond + counts[bin - 1]) <= most) beyond += counts[--bin];
  return bin_edge(bin);
}

const std::vector<double>& NullDistribution::stored_shares() {
  static const std::vector<double> shares = [] {
    std::vector<double> list{0.5, 0.4, 0.3, 0.2};
    for (int step = 20; step <= 140; ++step) {
      // Rounded to three digits, so that the header reads well: 0.1, 0.0891, 0.0794 ...
      char text[16];
      std::snprintf(text, sizeof text, "%.3g", std::pow(10.0, -step / 20.0));
      list.push_back(number_of(text).value());
    }
    return list;
  }();
  return shares;
}

}  // namespace kvo::inference
