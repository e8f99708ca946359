#include "engine/base/distributions.h"

#include <algorithm>
#include <boost/math/distributions/chi_squared.hpp>
#include <boost/math/distributions/fisher_f.hpp>
#include <boost/math/distributions/normal.hpp>
#include <boost/math/distributions/students_t.hpp>
#include <boost/math/special_functions/beta.hpp>
#include <boost/math/special_functions/gamma.hpp>
#include <cmath>

namespace kvo::base {

using boost::math::complement;

double normal_tail(double z) {
  return cdf(complement(boost::math::normal(), z));
}

double normal_of_tail(double upper_p) {
  return quantile(complement(boost::math::normal(), upper_p));
}

double normal_quantile(double p) {
  return quantile(boost::math::normal(), p);
}

double t_tail(double t, double df) {
  return cdf(complement(boost::math::students_t(df), t));
}

double t_of_tail(double upper_p, double df) {
  return quantile(complement(boost::math::students_t(df), upper_p));
}

double t_of_central_part(double part, double df) {
  double rest = 0;
  const double x = boost::math::ibeta_inv(0.5, df / 2, 2 * part, &rest);
  return std::sqrt(df * x / rest);
}

double chi_squared_tail(double Q, double df) {
  if (df < 1) return 1;
  return cdf(complement(boost::math::chi_squared(df), std::max(Q, 0.0)));
}

double chi_squared_of_tail(double upper_p, double df) {
  return quantile(complement(boost::math::chi_squared(df), upper_p));
}

double f_tail(double F, double df1, double df2) {
  return cdf(complement(boost::math::fisher_f(df1, df2), std::max(F, 0.0)));
}

double gamma_ratio_half(double a) {
  return boost::math::tgamma_delta_ratio(a, 0.5);
}

}  // namespace kvo::base
