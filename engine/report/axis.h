#pragma once

// Axes of plots.

#include <vector>

#include "engine/report/report_layer.h"

namespace kvo::report {

/// Places on an axis at round numbers, and how many decimals those need.
struct Ticks {
  std::vector<double> values;
  int decimals = 0;
};

/// Multiples of 1, 2 or 5 times a power of ten from low to high, about `most` at most. None when
/// low is not below high or either is not finite.
Ticks ticks_between(double low, double high, int most);

/// A scale from low to high that stands at pixels `from` to `to`.
struct Axis {
  double low, high, from, to;

  [[nodiscard]] double at(double value) const {
    return from + (value - low) / (high - low) * (to - from);
  }
  [[nodiscard]] bool shows(double value) const { return value >= low && value <= high; }
};

}  // namespace kvo::report
