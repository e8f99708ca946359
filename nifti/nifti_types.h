#pragma once

// The ways in which images store their values, and their conversion to 32-bit floats.

#include <cstddef>
#include <cstdint>

/// How stored values become real ones: slope * value + intercept.
struct Nifti_scaling {
  bool applies = false;  ///< false: values are as stored
  double slope = 1;
  double intercept = 0;
};

struct Nifti_type {
  std::int16_t code;  ///< `datatype`
  std::int16_t bits;  ///< `bitpix` that belongs to it
  bool basic;         ///< one of the four types that every reader of the system takes
  /// Converts n values. Scaling is computed in double precision from the value as stored and
  /// rounded once. `stored` may be the same memory as `values` when a stored value has 32 bits.
  void (*convert)(const char* stored, bool other_order, const Nifti_scaling& scaling, float* values,
                  std::size_t n);

  [[nodiscard]] std::size_t bytes() const { return static_cast<std::size_t>(bits) / 8; }
};

/// The type with the code; null when there is none that can be converted.
const Nifti_type* nifti_type(std::int16_t code);
