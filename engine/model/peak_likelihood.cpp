#include "engine/model/peak_likelihood.h"

#include <algorithm>
#include <cmath>

namespace kvo::model {

LikelihoodTable::LikelihoodTable() : values(effects), information(effects) {}

LikelihoodTable::Value LikelihoodTable::at(double effect) const {
  const double place = std::clamp((effect - lowest) / step, 0.0, double(effects - 1));
  const auto i = std::min(std::size_t(place), effects - 2);
  const double part = place - double(i);
  const double slope = (values[i + 1] - values[i]) / step;
  return {values[i] + slope * part * step, slope,
          information[i] + part * (information[i + 1] - information[i])};
}

void LikelihoodTable::add(const LikelihoodTable& other, double times) {
  for (std::size_t i = 0; i < effects; ++i) {
    values[i] += times * other.values[i];
    information[i] += times * other.information[i];
  }
}

StudyLikelihood::StudyLikelihood(const ListingStudy& study, double tau2, const PeakDensity& density)
    : variance_(study.variance), tau2_(tau2), threshold_(study.threshold), density_(density) {
  constexpr int parts = 40;
  for (std::size_t i = 0; i < LikelihoodTable::effects; ++i) {
    const double effect = LikelihoodTable::lowest + double(i) * LikelihoodTable::step;
    const double s = std::sqrt(variance_.at(effect) + tau2_);
    expected.values[i] =
        density_.above((threshold_ - effect) / s) + density_.above((threshold_ + effect) / s);
    for (const double sign : {1.0, -1.0}) {
      // Heights beyond seven standard deviations above the mean are negligible.
      const double dh = (std::max(threshold_, sign * effect) + 7 * s - threshold_) / parts;
      for (int h = 0; h < parts; ++h) {
        const Value log = of_height(sign * (threshold_ + (h + 0.5) * dh), effect);
        expected.information[i] += std::exp(log.value) * log.slope * log.slope * dh;
      }
    }
  }
}

StudyLikelihood::Value StudyLikelihood::of_peak(const ListedPeak& peak, double effect) const {
  if (peak.height_known) return of_height(peak.g, effect);
  const LikelihoodTable::Value at = expected.at(effect);
  return {std::log(at.value), at.slope / at.value};
}

StudyLikelihood::Value StudyLikelihood::of_height(double height, double effect) const {
  const double sign = height < 0 ? -1 : 1;
  const double s2 = variance_.at(effect) + tau2_, s = std::sqrt(s2);
  const double ds = variance_.slope * effect / s;
  const double x = sign * (height - effect) / s;
  const PeakDensity::Log log = density_.log_at(x);
  return {log.value - std::log(s), log.slope * (-sign - x * ds) / s - ds / s};
}

}  // namespace kvo::model
