#pragma once

// p values beyond what randomizations can count, and for many voxels at once.

#include <span>
#include <vector>

#include "engine/inference/inference_layer.h"

namespace kvo::inference {

/// With fewer values than this beyond an observed one, its p comes from a fitted tail.
inline constexpr std::size_t few_beyond = 5;

/// For each observed value its p among the largest values of the randomizations, which corrects it
/// for the family-wise error: (1 + those at least as large) / (1 + all). Where few are, the p comes
/// from a generalised Pareto distribution fitted to the largest tenth of them by their moments
/// (Hosking and Wallis 1987, Technometrics 29:339; Knijnenburg et al. 2009, Bioinformatics
/// 25:i161), but it is never below a tenth of the smallest that can be counted. With fewer than 100
/// randomizations nothing is fitted.
std::vector<float> p_among_largest(std::vector<float> largest, std::span<const float> observed);

/// The first moments of null values, which give their tail beyond what was counted.
struct Moments {
  double mean = 0, sd = 1, skewness = 0;
};

/// The upper tail beyond a value of the Pearson type III distribution (a shifted gamma, or the
/// normal distribution without skewness) of these moments (Winkler et al. 2016, NeuroImage
/// 141:502).
double pearson_tail(double value, const Moments& moments);

/// The false discovery rates at which each p value would be called significant (Benjamini and
/// Hochberg 1995, Journal of the Royal Statistical Society B 57:289).
std::vector<float> false_discovery_rates(std::span<const float> p);

}  // namespace kvo::inference
