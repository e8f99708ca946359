#include "engine/model/peak_density.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

namespace kvo::model {

namespace {

// The heights of the table. Beyond them the logarithm is extrapolated linearly.
constexpr double lowest = -8, highest = 14, spacing = 0.02;
constexpr auto heights = std::size_t((highest - lowest) / spacing + 1.5);

// Of a Gaussian autocorrelation: sigma1² / (sigma0 sigma2) = 3 / sqrt(15).
constexpr double gamma2 = 0.6;

/// The function f of equation A15: the distribution of the curvatures of maxima.
double curvatures(double x) {
  const double a = std::sqrt(2.5) * x;
  const double x2 = x * x;
  return (x2 * x - 3 * x) / 2 * (std::erf(a) + std::erf(a / 2)) +
         std::sqrt(0.4 / std::numbers::pi) *
             ((7.75 * x2 + 1.6) * std::exp(-0.625 * x2) + (0.5 * x2 - 1.6) * std::exp(-2.5 * x2));
}

/// The values of a field whose R* is 1, by height.
struct Table {
  std::array<double, heights> log{}, above{};

  Table() {
    constexpr double dx = 0.02;
    std::array<double, 1000> curvature{};
    for (std::size_t i = 0; i < curvature.size(); ++i) curvature[i] = curvatures(double(i) * dx);
    for (std::size_t h = 0; h < heights; ++h) {
      const double height = lowest + double(h) * spacing, mean = std::sqrt(gamma2) * height;
      constexpr double spread = 2 * (1 - gamma2);
      // The largest exponent is factored out so that not all terms underflow.
      const double nearest = std::max(mean, 0.0) - mean;
      double sum = 0;
      for (std::size_t i = 1; i < curvature.size(); ++i) {
        const double off = double(i) * dx - mean;
        sum += curvature[i] * std::exp((nearest * nearest - off * off) / spread);
      }
      log[h] = std::log(sum * dx / std::sqrt(spread * std::numbers::pi)) -
               nearest * nearest / spread - height * height / 2 -
               2 * std::log(2 * std::numbers::pi);
    }
    for (std::size_t h = heights - 1; h-- > 0;)
      above[h] = above[h + 1] + (std::exp(log[h]) + std::exp(log[h + 1])) / 2 * spacing;
  }
};

const Table& table() {
  static const Table made;
  return made;
}

}  // namespace

PeakDensity::PeakDensity(double fwhm) {
  // A field with the autocorrelation exp(-d²/(2 theta²)) has R* = theta 3 / sqrt(15).
  const double theta = fwhm / std::sqrt(4 * std::numbers::ln2), R = theta * std::sqrt(gamma2);
  per_mm3_ = 1 / (R * R * R);
  log_per_mm3_ = std::log(per_mm3_);
}

PeakDensity::Log PeakDensity::log_at(double height) const {
  const auto& log = table().log;
  const double place = std::clamp((height - lowest) / spacing, 0.0, double(heights - 2));
  const auto i = std::size_t(place);
  const double slope = (log[i + 1] - log[i]) / spacing;
  return {log[i] + slope * (height - lowest - double(i) * spacing) + log_per_mm3_, slope};
}

double PeakDensity::above(double height) const {
  const auto& above = table().above;
  const double place = std::clamp((height - lowest) / spacing, 0.0, double(heights - 1));
  const auto i = std::min(std::size_t(place), heights - 2);
  return (above[i] + (place - double(i)) * (above[i + 1] - above[i])) * per_mm3_;
}

}  // namespace kvo::model
