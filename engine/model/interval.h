#pragma once

#include "engine/model/model_layer.h"

namespace kvo::model {

/// The tail probability on either side of a 95 % interval, and its z: half the width of such an
/// interval in standard errors.
inline constexpr double interval_tail = 0.025, interval_z = 1.959963984540054;

/// The bounds of a 95 % interval.
struct Interval {
  double low, high;
};

}  // namespace kvo::model
