#pragma once

// The reference distributions of the engine, all by Boost.Math.

namespace kvo::base {

/// The upper tail of the standard normal distribution beyond z, and the z that has such a tail:
/// both accurate for small tails.
double normal_tail(double z);
double normal_of_tail(double upper_p);
/// The z below which the standard normal distribution has p.
double normal_quantile(double p);

/// The upper tail of Student's t distribution beyond t, and the t that has such a tail.
double t_tail(double t, double df);
double t_of_tail(double upper_p, double df);
/// The t > 0 such that this part of the distribution lies between 0 and t, accurate for small
/// parts.
double t_of_central_part(double part, double df);

/// The upper tail of the chi-squared distribution beyond Q; 1 without degrees of freedom.
double chi_squared_tail(double Q, double df);
/// The Q above which the chi-squared distribution has such a tail.
double chi_squared_of_tail(double upper_p, double df);

/// The upper tail of the F distribution beyond F.
double f_tail(double F, double df1, double df2);

/// gamma(a) / gamma(a + 1/2), which neither overflows nor cancels.
double gamma_ratio_half(double a);

}  // namespace kvo::base
