#include "engine/inference/tested_map.h"

#include <algorithm>

#include "engine/inference/tails.h"

namespace kvo::inference {

namespace {

// With fewer randomizations the smallest possible corrected p is 0.05 or more.
constexpr std::size_t least_to_correct = 20;

std::vector<float> turned(std::span<const float> map, float sign) {
  std::vector<float> values(map.begin(), map.end());
  for (float& value : values) value *= sign;
  return values;
}

/// The two-tailed p: twice the smaller one, because either direction could have been found.
std::vector<float> two_tailed(const std::vector<float>& positive,
                              const std::vector<float>& negative) {
  std::vector<float> p;
  for (std::size_t n = 0; n < positive.size(); ++n)
    p.push_back(std::min(1.0F, 2 * std::min(positive[n], negative[n])));
  return p;
}

}  // namespace

void LargestValues::add(const LargestValues& others) {
  value.insert(value.end(), others.value.begin(), others.value.end());
  extent.insert(extent.end(), others.extent.begin(), others.extent.end());
  tfce.insert(tfce.end(), others.tfce.begin(), others.tfce.end());
}

std::array<float, 2> thresholds_of(const NullDistribution& null) {
  const auto above_0 = [](double value) { return float(std::max(value, 1e-3)); };
  return {above_0(null.quantile(forming_p, Tail::positive)),
          above_0(-null.quantile(forming_p, Tail::negative))};
}

void add_corrected(TestedMap& tested, Found found, std::span<const float> observed,
                   Extents& extents) {
  tested.tfce.assign(observed.size(), 0);
  for (std::size_t t = 0; t < 2; ++t) {
    const float sign = t == 0 ? 1.0F : -1.0F;
    LargestValues& largest = found.largest[t];
    auto& [p, pFWE, pcluster, pTFCE, q] = tested.tails[t];
    p = std::move(found.p[t]);
    q = false_discovery_rates(p);
    const std::vector<float> tfce = extents.tfce(observed, sign);
    for (std::size_t n = 0; n < tfce.size(); ++n) tested.tfce[n] += sign * tfce[n];
    if (largest.value.size() < least_to_correct) continue;
    pFWE = p_among_largest(std::move(largest.value), turned(observed, sign));
    pTFCE = p_among_largest(std::move(largest.tfce), tfce);
    const std::vector<float> extent = extents.extents(observed, sign, found.thresholds[t]);
    pcluster = p_among_largest(std::move(largest.extent), extent);
    for (std::size_t n = 0; n < extent.size(); ++n)
      if (extent[n] == 0) pcluster[n] = 1;
  }
  for (std::size_t kind = 0; kind < tested.both.size(); ++kind)
    tested.both[kind] = two_tailed(tested.tails[0][kind], tested.tails[1][kind]);
  // The false discovery rate of the two-tailed p is not that of either direction.
  tested.both.back() = false_discovery_rates(tested.both.front());
}

}  // namespace kvo::inference
