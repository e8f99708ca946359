#include "companions/kvo_core/effect_size.h"

#include <boost/math/distributions/students_t.hpp>
#include <boost/math/special_functions/gamma.hpp>
#include <cmath>

double degrees_of_freedom(Sample sample) {
  return sample.n2 > 0 ? double(sample.n1) + sample.n2 - 2 : sample.n1 - 1.0;
}

double hedges_g(double t, Sample sample) {
  const double df = degrees_of_freedom(sample);
  // The ratio of gamma functions that are half apart, which neither overflows nor cancels.
  const double j = 1 / (std::sqrt(df / 2) * boost::math::tgamma_delta_ratio((df - 1) / 2, 0.5));
  const double d_of_t = sample.n2 > 0 ? std::sqrt(1.0 / sample.n1 + 1.0 / sample.n2)
                                      : 1 / std::sqrt(double(sample.n1));
  return t * d_of_t * j;
}

VarianceOfG variance_of_g(Sample sample) {
  if (sample.n2 == 0) return {1.0 / sample.n1, 1 / (2.0 * sample.n1)};
  return {1.0 / sample.n1 + 1.0 / sample.n2, 1 / (2 * (double(sample.n1) + sample.n2))};
}

double t_of_p(double upper_p, Sample sample) {
  const boost::math::students_t distribution(degrees_of_freedom(sample));
  return boost::math::quantile(boost::math::complement(distribution, upper_p));
}
