#pragma once

#include "engine/model/model_layer.h"

namespace kvo::model {

/// The bounds of a 95 % interval.
struct Interval {
  double low, high;
};

}  // namespace kvo::model
