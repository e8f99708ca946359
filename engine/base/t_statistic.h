#pragma once

// Other statistics converted to t statistics with the same p value. Everything is computed from the
// logarithm of the p value, so that the far tails keep their digits where the p value itself would
// be 0. Both functions are odd; 0 stays 0, infinity stays infinite, and NaN stays NaN.

namespace kvo::base {

/// The t statistic with `df` degrees of freedom that has the one-tailed p value of the z score.
double t_of_z(double z, double df);

/// The t statistic with `df` degrees of freedom whose one-tailed p value has this absolute -log10;
/// the sign is the direction that was tested. Below log10(2), p is above one half: the effect then
/// goes the other way. Exactly 0 is taken for "no value" and stays 0.
double t_of_log10_p(double log10_p, double df);

}  // namespace kvo::base
