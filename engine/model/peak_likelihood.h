#pragma once

// The likelihood of what one study lists, by the effect.

#include <vector>

#include "engine/model/peak_density.h"
#include "engine/model/peak_fit.h"

namespace kvo::model {

/// A function of the effect with its derivative, and the expected information that goes with it.
class LikelihoodTable {
 public:
  LikelihoodTable();
  struct Value {
    double value, slope, information;
  };
  [[nodiscard]] Value at(double effect) const;
  /// Adds a multiple of another one.
  void add(const LikelihoodTable& other, double times);

  static constexpr double lowest = -3, highest = 4, step = 0.05;
  static constexpr auto effects = std::size_t((highest - lowest) / step + 1.5);
  std::vector<double> values, information;
};

class StudyLikelihood {
 public:
  StudyLikelihood(const ListingStudy& study, double tau2, const PeakDensity& density);

  /// Expected maxima beyond the threshold, per mm³, of which a study may list only a share.
  LikelihoodTable expected;

  /// The logarithm of the density of a peak at its height.
  struct Value {
    double value, slope;
  };
  [[nodiscard]] Value of_peak(const ListedPeak& peak, double effect) const;

 private:
  /// The same for the logarithm of the density of maxima of a height, whose derivative is by the
  /// effect.
  [[nodiscard]] Value of_height(double height, double effect) const;

  VarianceOfG variance_;
  double tau2_, threshold_;
  PeakDensity density_;
};

}  // namespace kvo::model
