#pragma once

// The engine's reference distributions, all from Boost.Math.

namespace kvo::base {

/// The upper tail of the standard normal distribution beyond z, and the z with such a tail; both
/// are accurate for small tails.
double normal_tail(double z);
double normal_of_tail(double upper_p);
/// The z below which lies the part p of the standard normal distribution.
double normal_quantile(double p);

/// The upper tail of Student's t distribution beyond t, and the t with such a tail.
double t_tail(double t, double df);
double t_of_tail(double upper_p, double df);
/// The t > 0 for which this part of the distribution lies between 0 and t, accurate for small
/// parts.
double t_of_central_part(double part, double df);

/// The upper tail of the chi-squared distribution beyond Q; 1 without degrees of freedom.
double chi_squared_tail(double Q, double df);
/// The Q with such a tail.
double chi_squared_of_tail(double upper_p, double df);

/// The upper tail of the F distribution beyond F.
double f_tail(double F, double df1, double df2);

/// gamma(a) / gamma(a + 1/2), without overflow or cancellation.
double gamma_ratio_half(double a);

}  // namespace kvo::base
