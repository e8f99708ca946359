#pragma once

// Gaussian kernels.

#include <cmath>

#include "engine/images/images_layer.h"

namespace kvo::images {

/// The standard deviation of a kernel with this full width at half maximum.
inline double sigma_of_fwhm(double fwhm) {
  return fwhm / std::sqrt(8 * std::log(2.0));
}

/// The kernel's height at a distance from its centre, where it is 1.
inline double gaussian(double distance, double sigma) {
  return std::exp(-distance * distance / (2 * sigma * sigma));
}

}  // namespace kvo::images
