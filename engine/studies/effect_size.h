#pragma once

// Standardized mean differences from t statistics (Hedges 1981, Journal of Educational Statistics
// 6:107; Borenstein et al. 2009, Introduction to Meta-Analysis, chapter 4).

#include <cstddef>

#include "engine/studies/studies_layer.h"

namespace kvo::studies {

/// The sizes of a study's samples; n2 is 0 in a one-sample study.
struct Sample {
  int n1 = 0, n2 = 0;
  bool operator==(const Sample&) const = default;
};

inline std::size_t participants_of(Sample sample) {
  return std::size_t(sample.n1) + std::size_t(sample.n2);
}

/// No study has a t statistic this large; larger numbers are typing errors or something else.
inline constexpr double max_t = 10000;

/// Degrees of freedom of the study's t statistic.
double degrees_of_freedom(Sample sample);

/// The standard error of a standardized mean difference of 0: sqrt(1/n1 + 1/n2), or 1 / sqrt(n1)
/// with one sample.
double error_by_size(Sample sample);

/// Hedges' g from a t statistic: d = t error_by_size(), times
/// J(df) = gamma(df/2) / (sqrt(df/2) gamma((df-1)/2)). Needs at least 2 degrees of freedom.
double hedges_g(double t, Sample sample);

/// The variance of g is base + slope g^2: 1/n1 + 1/n2 + g^2 / (2 (n1 + n2)), or
/// 1/n1 + g^2 / (2 n1) with one sample.
struct VarianceOfG {
  double base, slope;
  [[nodiscard]] double at(double g) const { return base + slope * g * g; }
};
VarianceOfG variance_of_g(Sample sample);

/// The t value with this upper tail probability.
double t_of_p(double upper_p, Sample sample);

}  // namespace kvo::studies
