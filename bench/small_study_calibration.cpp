// Simulates meta-analyses of one effect a study and prints, as tables in Markdown, how often tests
// for small-study effects are wrong where there are none, and how often intervals hold the truth.

#include <cmath>
#include <cstdio>
#include <exception>
#include <random>
#include <span>
#include <vector>

#include "engine/base/distributions.h"
#include "engine/model/random_effects.h"
#include "engine/studies/effect_size.h"

using namespace kvo::base;
using namespace kvo::model;
using namespace kvo::studies;

namespace {

constexpr int runs = 5000;
constexpr double level = 0.05;

struct Setting {
  bool two_samples;
  std::size_t studies;
  double g, tau;  ///< of the true effects, which are normal
};

struct Simulated {
  std::vector<Effect> effects;
  std::vector<double> errors_by_size;
  double further;  ///< the true effect of a further study
};

/// Studies of 9 to 35 participants in each sample, with the g that a t test of theirs comes to.
Simulated simulated(const Setting& setting, std::mt19937_64& random) {
  std::normal_distribution<double> normal;
  std::uniform_int_distribution<int> size(9, 35);
  Simulated meta;
  for (std::size_t s = 0; s < setting.studies; ++s) {
    Sample sample;
    sample.n1 = size(random);
    if (setting.two_samples) sample.n2 = size(random);
    const double df = degrees_of_freedom(sample), error = error_by_size(sample);
    const double effect = setting.g + setting.tau * normal(random);
    std::chi_squared_distribution<double> spread(df);
    const double t = (normal(random) + effect / error) / std::sqrt(spread(random) / df);
    const double g = hedges_g(t, sample);
    meta.effects.push_back({g, variance_of_g(sample).at(g)});
    meta.errors_by_size.push_back(error);
  }
  meta.further = setting.g + setting.tau * normal(random);
  return meta;
}

/// The two-tailed p of the classic test (Egger et al. 1997, BMJ 315:629): effect on standard error,
/// weighted by 1/v with a dispersion that is estimated, t with k - 2 degrees of freedom.
double classic_p(std::span<const Effect> effects) {
  double sum = 0, mean_se = 0, mean_g = 0;
  for (const auto& [g, variance] : effects) {
    sum += 1 / variance;
    mean_se += 1 / std::sqrt(variance);
    mean_g += g / variance;
  }
  mean_se /= sum;
  mean_g /= sum;
  double se_se = 0, se_g = 0, g_g = 0;
  for (const auto& [g, variance] : effects) {
    const double se = std::sqrt(variance) - mean_se;
    se_se += se * se / variance;
    se_g += se * (g - mean_g) / variance;
    g_g += (g - mean_g) * (g - mean_g) / variance;
  }
  const double slope = se_g / se_se, df = double(effects.size()) - 2;
  const double t = slope / std::sqrt((g_g - slope * se_g) / df / se_se);
  return 2 * t_tail(std::abs(t), df);
}

void print_head(const Setting& setting) {
  std::printf("| %s | %zu | %.1f | %.1f |", setting.two_samples ? "two" : "one", setting.studies,
              setting.g, setting.tau);
}

void print_false_positives(const Setting& setting, std::mt19937_64& random) {
  int classic = 0, reml = 0, moments = 0;
  for (int run = 0; run < runs; ++run) {
    const Simulated meta = simulated(setting, random);
    const auto p_of = [&](Method method) {
      return small_study_test(meta.effects, meta.errors_by_size, method).test.value().slope.p;
    };
    classic += classic_p(meta.effects) < level ? 1 : 0;
    reml += p_of(Method::restricted_likelihood) < level ? 1 : 0;
    moments += p_of(Method::moments) < level ? 1 : 0;
  }
  print_head(setting);
  std::printf(" %.1f | **%.1f** | %.1f |\n", 100.0 * classic / runs, 100.0 * reml / runs,
              100.0 * moments / runs);
}

bool holds(const Interval& interval, double value) {
  return interval.low <= value && value <= interval.high;
}

void print_coverage(const Setting& setting, std::mt19937_64& random) {
  int reml = 0, moments = 0, prediction = 0, profile = 0;
  const Design design = make_design({}, setting.studies);
  for (int run = 0; run < runs; ++run) {
    const Simulated meta = simulated(setting, random);
    const PooledEffect pool = pool_effects(meta.effects, Method::restricted_likelihood);
    const auto intervals = intervals_of_effects(design, meta.effects);
    reml += holds(pool.mean.interval, setting.g) ? 1 : 0;
    prediction += pool.prediction && holds(*pool.prediction, meta.further) ? 1 : 0;
    const double tau2 = setting.tau * setting.tau;
    profile += intervals && holds({intervals->low.tau2, intervals->high.tau2}, tau2) ? 1 : 0;
    moments += holds(pool_effects(meta.effects, Method::moments).mean.interval, setting.g) ? 1 : 0;
  }
  print_head(setting);
  std::printf(" **%.1f** | %.1f | %.1f | %.1f |\n", 100.0 * reml / runs, 100.0 * moments / runs,
              100.0 * prediction / runs, 100.0 * profile / runs);
}

void print_tables() {
  std::mt19937_64 random(1);
  std::puts(
      "| samples | studies | g | τ | classic test, % | by sample size, REML, % "
      "| by sample size, DL, % |\n"
      "| --- | --- | --- | --- | --- | --- | --- |");
  for (const bool two_samples : {false, true})
    for (const std::size_t studies : {10, 20, 40})
      for (const double g : {0.0, 0.5, 1.0})
        for (const double tau : {0.0, 0.2})
          print_false_positives({two_samples, studies, g, tau}, random);
  std::puts(
      "\n| samples | studies | g | τ | mean, REML and Hartung-Knapp, % | mean, DL, % "
      "| prediction, % | τ², % |\n"
      "| --- | --- | --- | --- | --- | --- | --- | --- |");
  for (const bool two_samples : {false, true})
    for (const std::size_t studies : {3, 5, 10, 20})
      for (const double tau : {0.1, 0.3}) print_coverage({two_samples, studies, 0.5, tau}, random);
}

}  // namespace

int main() {
  try {
    print_tables();
  } catch (const std::exception& fault) {
    std::fprintf(stderr, "%s\n", fault.what());
    return 1;
  }
}
