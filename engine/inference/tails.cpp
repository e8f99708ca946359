#include "engine/inference/tails.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numeric>
#include <optional>

#include "engine/base/distributions.h"

namespace kvo::inference {

namespace {

constexpr std::size_t least_to_fit = 100;
constexpr double fitted_share = 0.1;

/// The tail beyond a threshold: (1 - k x / a)^(1 / k) for an excess of x.
struct ParetoTail {
  double threshold, share, k, a;

  [[nodiscard]] double beyond(double value) const {
    const double x = value - threshold;
    if (std::abs(k) < 1e-6) return share * std::exp(-x / a);
    return share * std::pow(std::max(0.0, 1 - k * x / a), 1 / k);
  }
};

/// The tail of sorted values; nothing where the largest are all the same.
std::optional<ParetoTail> fitted_tail(std::span<const float> sorted) {
  if (sorted.size() < least_to_fit) return std::nullopt;
  const auto count = std::size_t(fitted_share * double(sorted.size()));
  const std::span<const float> tail = sorted.last(count);
  const double threshold = sorted[sorted.size() - count - 1];
  double mean = 0, variance = 0;
  for (const float value : tail) mean += (double(value) - threshold) / double(count);
  for (const float value : tail)
    variance += std::pow(double(value) - threshold - mean, 2) / double(count - 1);
  if (!(variance > 0)) return std::nullopt;
  const double ratio = mean * mean / variance;
  return ParetoTail{threshold, double(count) / double(sorted.size()), (ratio - 1) / 2,
                    mean * (ratio + 1) / 2};
}

}  // namespace

std::vector<float> p_among_largest(std::vector<float> largest, std::span<const float> observed) {
  std::sort(largest.begin(), largest.end());
  const std::optional<ParetoTail> tail = fitted_tail(largest);
  const double all = 1 + double(largest.size());
  std::vector<float> p;
  p.reserve(observed.size());
  for (const float value : observed) {
    const auto beyond =
        std::size_t(largest.end() - std::lower_bound(largest.begin(), largest.end(), value));
    double each = (1 + double(beyond)) / all;
    if (tail && beyond < few_beyond)
      each = std::clamp(tail->beyond(double(value)), 0.1 / all, each);
    p.push_back(float(each));
  }
  return p;
}

double pearson_tail(double value, const Moments& moments) {
  const double x = (value - moments.mean) / moments.sd, g = moments.skewness;
  if (std::abs(g) < 1e-3) return normal_tail(x);
  // (X + 2 / g) 2 / g follows a gamma distribution of the shape 4 / g^2, mirrored where g < 0.
  const double shape = 4 / (g * g);
  const double gamma = std::max(0.0, shape + 2 * x / g);
  const double upper = chi_squared_tail(2 * gamma, 2 * shape);
  return g > 0 ? upper : 1 - upper;
}

std::vector<float> false_discovery_rates(std::span<const float> p) {
  std::vector<std::uint32_t> order(p.size());
  std::iota(order.begin(), order.end(), 0U);
  std::sort(order.begin(), order.end(),
            [&](std::uint32_t a, std::uint32_t b) { return p[a] > p[b]; });
  std::vector<float> q(p.size());
  double least = 1;
  for (std::size_t i = 0; i < order.size(); ++i) {
    const double rank = double(order.size() - i);
    least = std::min(least, double(p[order[i]]) * double(p.size()) / rank);
    q[order[i]] = float(least);
  }
  return q;
}

}  // namespace kvo::inference
