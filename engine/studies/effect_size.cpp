#include "engine/studies/effect_size.h"

#include <cmath>
#include "engine/base/distributions.h"

namespace kvo::studies {

double degrees_of_freedom(Sample sample) {
  return sample.n2 > 0 ? double(sample.n1) + sample.n2 - 2 : sample.n1 - 1.0;
}

double error_by_size(Sample sample) {
  return sample.n2 > 0 ? std::sqrt(1.0 / sample.n1 + 1.0 / sample.n2)
                       : 1 / std::sqrt(double(sample.n1));
}

double hedges_g(double t, Sample sample) {
  const double df = degrees_of_freedom(sample);
  const double j = 1 / (std::sqrt(df / 2) * gamma_ratio_half((df - 1) / 2));
  return t * error_by_size(sample) * j;
}

VarianceOfG variance_of_g(Sample sample) {
  if (sample.n2 == 0) return {1.0 / sample.n1, 1 / (2.0 * sample.n1)};
  return {1.0 / sample.n1 + 1.0 / sample.n2, 1 / (2 * (double(sample.n1) + sample.n2))};
}

double t_of_p(double upper_p, Sample sample) {
  return t_of_tail(upper_p, degrees_of_freedom(sample));
}

}  // namespace kvo::studies
