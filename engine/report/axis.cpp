#include "engine/report/axis.h"

#include <algorithm>
#include <cmath>

namespace kvo::report {

Ticks ticks_between(double low, double high, int most) {
  const double range = high - low;
  if (!std::isfinite(range) || range <= 0) return {};
  const double power = std::floor(std::log10(range / most));
  double step = 0;
  for (const double factor : {1.0, 2.0, 5.0, 10.0}) {
    step = factor * std::pow(10, power);
    if (range / step <= most) break;
  }
  // Numbers too large for their steps have none.
  if (low + step == low || high + step == high) return {};
  Ticks ticks;
  ticks.decimals = std::max(0, -int(std::floor(std::log10(step) + 1e-9)));
  const double slack = 1e-9 * range;
  for (double n = std::ceil((low - slack) / step); n * step <= high + slack; ++n)
    ticks.values.push_back(n * step);
  return ticks;
}

}  // namespace kvo::report
