#include "engine/base/t_statistic.h"

#include <cmath>
#include <limits>
#include <numbers>

#include "engine/base/distributions.h"

namespace kvo::base {

namespace {

constexpr double TINY = 1e-300;
constexpr double EPSILON = std::numeric_limits<double>::epsilon();
/// Below this z, t is proportional to z to double precision.
constexpr double LINEAR = 1e-8;
/// Above this tail probability, the part between 0 and t is computed instead of the tail.
constexpr double CENTRAL_P = 0.1;

/// log of the upper tail of the standard normal distribution at z > 0.
double log_normal_tail(double z) {
  if (z < 20) return std::log(std::erfc(z / std::numbers::sqrt2) / 2);
  // The asymptotic series, Abramowitz and Stegun 1964, 26.2.12. Five terms leave 1e-10 at z = 20.
  const double q = 1 / (z * z);
  const double series = 1 - q * (1 - 3 * q * (1 - 5 * q * (1 - 7 * q * (1 - 9 * q))));
  return -z * z / 2 - std::log(z) - std::log(2 * std::numbers::pi) / 2 + std::log(series);
}

/// log of the complete beta function of df / 2 and 1 / 2.
double log_beta_half(double df) {
  return std::log(gamma_ratio_half(df / 2)) + std::log(std::numbers::pi) / 2;
}

/// The continued fraction of the incomplete beta function (Abramowitz and Stegun 1964, 26.5.8) by
/// the modified method of Lentz (Press et al. 2007, Numerical Recipes, 6.4).
double beta_fraction(double a, double b, double x) {
  const auto kept_from_zero = [](double value) { return std::abs(value) < TINY ? TINY : value; };
  double c = 1;
  double d = 1 / kept_from_zero(1 - (a + b) * x / (a + 1));
  double fraction = d;
  for (int m = 1; m < 100000; ++m) {
    const double even = m * (b - m) * x / ((a + 2 * m - 1) * (a + 2 * m));
    d = 1 / kept_from_zero(1 + even * d);
    c = kept_from_zero(1 + even / c);
    fraction *= d * c;
    const double odd = -(a + m) * (a + b + m) * x / ((a + 2 * m) * (a + 2 * m + 1));
    d = 1 / kept_from_zero(1 + odd * d);
    c = kept_from_zero(1 + odd / c);
    fraction *= d * c;
    if (std::abs(d * c - 1) < EPSILON) break;
  }
  return fraction;
}

/// Student's distribution at a t > 0 well away from 0. t may be so large that its square overflows.
struct T_tail {
  double log_tail;     ///< log of the upper tail
  double log_density;  ///< log of the density
};
T_tail t_tail(double log_t, double df, double log_beta) {
  // With x = df / (df + t^2) the tail is half the incomplete beta function of df / 2 and 1 / 2.
  constexpr double LARGE = 40;  // beyond it exp() + 1 is exp()
  const double log_ratio = 2 * log_t - std::log(df);
  const double log_x = log_ratio > LARGE ? -log_ratio : -std::log1p(std::exp(log_ratio));
  const double log_rest = log_ratio + log_x;  // log(1 - x)
  return {df / 2 * log_x + log_rest / 2 - std::log(df) - log_beta +
              std::log(beta_fraction(df / 2, 0.5, std::exp(log_x))),
          (df + 1) / 2 * log_x - std::log(df) / 2 - log_beta};
}

/// The t > 0 whose upper tail has this log, by Newton's method on log t: the log of the tail is
/// decreasing and concave in log t, so it converges from any start.
double t_of_log_tail(double log_p, double df) {
  const double log_beta = log_beta_half(df);
  double log_t = std::log(-2 * log_p) / 2;
  for (int i = 0; i < 200; ++i) {
    const T_tail at = t_tail(log_t, df, log_beta);
    const double slope = -std::exp(at.log_density - at.log_tail + log_t);
    const double step = (log_p - at.log_tail) / slope;
    log_t += step;
    if (std::abs(step) < 1e-12) break;
  }
  return std::exp(log_t);
}

}  // namespace

double t_of_z(double z, double df) {
  const double size = std::abs(z);
  if (size == 0 || !std::isfinite(z)) return z;
  double t = 0;
  if (size < LINEAR)
    t = size * std::exp(log_beta_half(df) + std::log(df / (2 * std::numbers::pi)) / 2);
  else if (const double central = std::erf(size / std::numbers::sqrt2) / 2;
           0.5 - central > CENTRAL_P)
    t = t_of_central_part(central, df);
  else
    t = t_of_log_tail(log_normal_tail(size), df);
  return std::copysign(t, z);
}

double t_of_log10_p(double log10_p, double df) {
  const double size = std::abs(log10_p);
  if (size == 0 || !std::isfinite(log10_p)) return log10_p;
  const double log_p = -size * std::numbers::ln10;
  double t = 0;
  // The part between 0 and t is 1/2 - p, which keeps its digits on both sides of p = 1/2.
  const double central = -std::expm1(log_p + std::numbers::ln2) / 2;
  if (0.5 - central <= CENTRAL_P)
    t = t_of_log_tail(log_p, df);
  else if (-central > 0.5 - CENTRAL_P)
    t = -t_of_log_tail(std::log(-std::expm1(log_p)), df);
  else if (central != 0)
    t = std::copysign(t_of_central_part(std::abs(central), df), central);
  return std::copysign(1.0, log10_p) * t;
}

}  // namespace kvo::base
