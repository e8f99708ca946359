#pragma once

/// The bounds of a 95 % interval.
struct Interval {
  double low, high;
};
