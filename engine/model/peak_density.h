#pragma once

// Local maxima of a smooth Gaussian random field: how many there are, by their height.
//
// Bardeen, Bond, Kaiser and Szalay 1986, The Astrophysical Journal 304:15, equations 4.3 to 4.5 and
// A15 to A19, for a three-dimensional field with a Gaussian autocorrelation.

#include "engine/model/model_layer.h"

namespace kvo::model {

/// The density of local maxima of a stationary field of mean 0 and variance 1.
class PeakDensity {
 public:
  /// The field is white noise smoothed with a Gaussian kernel of this full width at half maximum,
  /// in mm.
  explicit PeakDensity(double fwhm);

  /// The natural logarithm of the maxima per mm³ and unit of height, and its derivative with
  /// respect to height.
  struct Log {
    double value, slope;
  };
  [[nodiscard]] Log log_at(double height) const;
  /// The maxima above the height, per mm³.
  [[nodiscard]] double above(double height) const;

 private:
  double per_mm3_, log_per_mm3_;  ///< scale of the table's values, and its logarithm
};

}  // namespace kvo::model
