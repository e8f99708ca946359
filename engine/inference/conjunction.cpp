#include "engine/inference/conjunction.h"

#include <algorithm>
#include <cmath>
#include "engine/base/distributions.h"

namespace kvo::inference {

namespace {

double shrunk(double p) {
  return normal_tail(normal_of_tail(p) / std::sqrt(2.0));
}

double log_odds(double p) {
  return std::log(p) - std::log1p(-p);
}

/// The factor on the log odds.
double scale_of(const ConjunctionMode& mode) {
  if (!mode.scenario) return 1;
  // At 0.5 both log odds are 0; the factor tends to the ratio of their slopes.
  if (mode.tolerable > 0.499) return std::sqrt(2.0);
  return log_odds(mode.tolerable) / log_odds(shrunk(mode.tolerable));
}

/// The p that counts, in one direction of one map.
struct Side {
  bool positive, error;
  double scale;
  double no_effect;  ///< the image's p where there is no effect

  Side(const Image& image, bool direction, const ConjunctionMode& mode)
      : positive(direction),
        error(mode.error),
        scale(scale_of(mode)),
        no_effect(p_of_no_effect(image).value_or(positive ? 1 : 0)) {}

  [[nodiscard]] double p(float value) const {
    if (positive ? value >= no_effect : value <= no_effect) return 1;
    const double p = positive ? double(value) : 1 - double(value);
    if (!error || p == 1) return p;
    if (scale == 1) return shrunk(p);
    return 1 / (1 + std::exp(-scale * log_odds(shrunk(p))));
  }
};

bool defined(float p) {
  return p != 1;
}

std::vector<float> larger_p(const Image& first, const Image& second, bool positive,
                            const ConjunctionMode& mode) {
  const Side side1(first, positive, mode), side2(second, positive, mode);
  std::vector<float> larger(first.values.size(), 1);
  for (std::size_t i = 0; i < larger.size(); ++i)
    if (defined(first.values[i]) && defined(second.values[i]))
      larger[i] = float(std::max(side1.p(first.values[i]), side2.p(second.values[i])));
  return larger;
}

}  // namespace

Conjunction conjunction_of(const Image& first, const Image& second, const ConjunctionMode& mode) {
  Conjunction conjunction;
  conjunction.tails.positive[0] = larger_p(first, second, true, mode);
  conjunction.tails.negative[0] = larger_p(first, second, false, mode);
  for (std::size_t i = 0; i < first.values.size(); ++i)
    if (defined(first.values[i]) && defined(second.values[i])) ++conjunction.voxels;
  return conjunction;
}

std::vector<float> conjunction_z(const Conjunction& conjunction, float p) {
  const std::vector<float>&positive = conjunction.tails.positive[0],
        &negative = conjunction.tails.negative[0];
  std::vector<float> z(positive.size());
  for (std::size_t i = 0; i < z.size(); ++i) {
    if (positive[i] < p)
      z[i] = float(normal_of_tail(positive[i]));
    else if (negative[i] < p)
      z[i] = float(normal_quantile(negative[i]));
  }
  return z;
}

}  // namespace kvo::inference
