#include "engine/model/peak_likelihood.h"

#include <algorithm>
#include <cmath>

namespace kvo::model {

namespace {

/// The number per mm³ of these maxima that are the highest in such a realm.
double listed_of(double maxima, double realm) {
  return realm > 0 ? -std::expm1(-realm * maxima) / realm : maxima;
}

}  // namespace

LikelihoodTable::LikelihoodTable() : values(effects), information(effects) {}

LikelihoodTable::Value LikelihoodTable::at(double effect) const {
  const double place = std::clamp((effect - lowest) / step, 0.0, double(effects - 1));
  const auto i = std::min(std::size_t(place), effects - 2);
  const double part = place - double(i);
  const double slope = (values[i + 1] - values[i]) / step;
  return {values[i] + slope * part * step, slope,
          information[i] + part * (information[i + 1] - information[i])};
}

void LikelihoodTable::add(const LikelihoodTable& other) {
  for (std::size_t i = 0; i < effects; ++i) {
    values[i] += other.values[i];
    information[i] += other.information[i];
  }
}

void LikelihoodTable::add_volume(double effect, double volume, std::span<double> volumes) {
  const double place = std::clamp((effect - lowest) / step, 0.0, double(effects - 1));
  const auto i = std::min(std::size_t(place), effects - 2);
  volumes[i] += volume * (1 - place + double(i));
  volumes[i + 1] += volume * (place - double(i));
}

StudyLikelihood::StudyLikelihood(const ListingStudy& study, double tau2, const PeakDensity& density)
    : variance_(study.variance), tau2_(tau2), threshold_(study.threshold), density_(density) {
  std::size_t unknown = 0;
  for (const ListedPeak& peak : study.peaks) unknown += peak.height_known ? 0 : 1;
  if (unknown > 0) unknown_heights_ = double(unknown) / double(study.peaks.size());
  for (std::size_t i = 0; i < LikelihoodTable::effects; ++i) {
    const double effect = LikelihoodTable::effect(i);
    for (const std::size_t negative : {0, 1})
      maxima_[negative].push_back(maxima_beyond(threshold_, negative == 0 ? 1 : -1, effect).value);
  }
  take_realm(0);
}

double StudyLikelihood::listed_at(std::size_t effect, double realm) const {
  double sum = 0;
  for (const std::vector<double>& maxima : maxima_) sum += listed_of(maxima[effect], realm);
  return sum;
}

double StudyLikelihood::listed(std::span<const double> volumes, double realm) const {
  double sum = 0;
  for (std::size_t i = 0; i < volumes.size(); ++i)
    if (volumes[i] > 0) sum += volumes[i] * listed_at(i, realm);
  return sum;
}

double StudyLikelihood::realm_of(std::span<const double> volumes, double listed) const {
  // The logarithm of a realm, in mm³, from one with no second maximum to one larger than any head.
  double low = 0, high = 25;
  if (this->listed(volumes, std::exp(low)) <= listed) return 0;
  while (high - low > 1e-6) {
    const double middle = (low + high) / 2;
    (this->listed(volumes, std::exp(middle)) > listed ? low : high) = middle;
  }
  return std::exp(low);
}

StudyLikelihood::Score StudyLikelihood::score_at(std::size_t i) const {
  constexpr int parts = 40;
  const double effect = LikelihoodTable::effect(i);
  const double s = std::sqrt(variance_.at(effect) + tau2_), ds = variance_.slope * effect / s;
  double score = 0, square = 0, sensitivity = 0, of_places = 0;
  for (const double sign : {1.0, -1.0}) {
    const Value beyond = maxima_beyond(threshold_, sign, effect);
    of_places += listed_of(beyond.value, realm_) * beyond.slope / beyond.value;
    // Heights beyond seven standard deviations above the mean are negligible.
    const double dh = (std::max(threshold_, sign * effect) + 7 * s - threshold_) / parts;
    for (int h = 0; h < parts; ++h) {
      // As in of_peak() and maxima_beyond(), without computing twice what they share.
      const double x = (threshold_ + (h + 0.5) * dh - sign * effect) / s, dx = -(sign + x * ds) / s;
      const PeakDensity::Log log = density_.log_at(x);
      const double density = std::exp(log.value), slope = log.slope * dx - ds / s;
      const double listed = density / s * std::exp(-realm_ * density_.above(x)) * dh;
      score += listed * slope;
      square += listed * slope * slope;
      sensitivity += listed * slope * (slope + realm_ * density * dx);
    }
  }
  sensitivity = std::max(sensitivity, 0.0);
  return {score + unknown_heights_ * (of_places - score), sensitivity * sensitivity / square};
}

void StudyLikelihood::take_realm(double realm) {
  realm_ = realm;
  constexpr std::size_t n = LikelihoodTable::effects, middle = n / 2;
  std::vector<double> score(n);
  for (std::size_t i = 0; i < n; ++i) {
    expected.values[i] = listed_at(i, realm);
    const Score at = score_at(i);
    score[i] = at.expected;
    expected.information[i] = at.information;
  }
  silence = expected;
  if (realm == 0) return;
  // The integral of what the peaks add to the slope.
  const auto add = [&](std::size_t from, std::size_t to, double way) {
    silence.values[to] =
        silence.values[from] + way * LikelihoodTable::step / 2 * (score[from] + score[to]);
  };
  for (std::size_t i = middle + 1; i < n; ++i) add(i - 1, i, 1);
  for (std::size_t i = middle; i-- > 0;) add(i + 1, i, -1);
}

StudyLikelihood::Value StudyLikelihood::maxima_beyond(double height, double sign,
                                                      double effect) const {
  const double s = std::sqrt(variance_.at(effect) + tau2_), ds = variance_.slope * effect / s;
  const double x = (height - sign * effect) / s;
  return {density_.above(x), std::exp(density_.log_at(x).value) * (sign + x * ds) / s};
}

StudyLikelihood::Value StudyLikelihood::of_peak(const ListedPeak& peak, double effect) const {
  const double sign = peak.g < 0 ? -1 : 1;
  if (!peak.height_known) {
    const Value maxima = maxima_beyond(threshold_, sign, effect);
    return {std::log(maxima.value), maxima.slope / maxima.value};
  }
  const double s = std::sqrt(variance_.at(effect) + tau2_), ds = variance_.slope * effect / s;
  const double x = sign * (peak.g - effect) / s;
  const PeakDensity::Log log = density_.log_at(x);
  return {log.value - std::log(s), log.slope * (-sign - x * ds) / s - ds / s};
}

double StudyLikelihood::log_listed(const ListedPeak& peak, double effect) const {
  const double sign = peak.g < 0 ? -1 : 1;
  if (!peak.height_known)
    return std::log(listed_of(maxima_beyond(threshold_, sign, effect).value, realm_));
  return of_peak(peak, effect).value - realm_ * maxima_beyond(sign * peak.g, sign, effect).value;
}

}  // namespace kvo::model
