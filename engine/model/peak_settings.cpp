#include "engine/model/peak_settings.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <optional>
#include <utility>

#include "engine/base/parallel.h"

namespace kvo::model {

namespace {

/// The number of folds of the cross-validation.
constexpr std::size_t parts = 4;
/// With more studies, an evenly spaced subset is used.
constexpr std::size_t most_studies = 60;
constexpr std::size_t fewest_studies = 5, fewest_peaks = 30;
/// Where studies list a smaller share of their maxima than this, the heights of listed peaks
/// reflect how they were selected rather than how studies differ: the between-study variance is
/// then not estimated.
constexpr double enough_listed = 1.0 / 3;
/// The gain per peak that a change must bring.
constexpr double worth_it = 1e-4;

/// Predictions are best with a prior as narrow as effects are. Estimates are made with a wider one,
/// which shrinks them less towards 0.
constexpr double effect_sd_of_predictions = 0.4;

/// The values that are tried.
constexpr std::array tau2_steps{0.01, 0.02, 0.04, 0.07, 0.1, 0.15, 0.25};
constexpr std::array smoothness_steps{7.0, 9.0, 11.0, 14.0};
constexpr std::array width_steps{24.0, 28.0};

class Prediction {
 public:
  Prediction(std::vector<ListingStudy> studies, const Mask& mask)
      : studies_(std::move(studies)), mask_(mask), fits_(parts) {}

  /// The mean of foretold() per peak, which grows as predictions get better. Fits start from those
  /// of the last settings that were kept.
  double gain(const PeakAssumptions& assumptions) {
    std::vector<Foretold> foretold_of(parts);
    std::vector<std::optional<PeakFit>> fits(parts);
    in_parallel(parts, [&](std::size_t part, std::size_t) {
      std::vector<ListingStudy> left_out, others;
      for (std::size_t s = 0; s < studies_.size(); ++s)
        (s % parts == part ? left_out : others).push_back(studies_[s]);
      fits[part].emplace(
          fit_roughly(others, mask_, assumptions, fits_[part] ? &*fits_[part] : nullptr));
      foretold_of[part] = foretold(*fits[part], left_out, mask_);
    });
    Foretold all;
    for (const Foretold& part : foretold_of) all.sum += part.sum, all.peaks += part.peaks;
    tried_ = std::move(fits);
    return all.peaks == 0 ? 0 : all.sum / double(all.peaks);
  }
  void keep() { fits_ = std::move(tried_); }
  /// The mean listed share of the studies in the fits that were kept.
  [[nodiscard]] double mean_share() const {
    double sum = 0;
    std::size_t count = 0;
    for (const std::optional<PeakFit>& fit : fits_)
      for (const double share : fit->shares) sum += share, ++count;
    return sum / double(count);
  }

 private:
  std::vector<ListingStudy> studies_;
  const Mask& mask_;
  std::vector<std::optional<PeakFit>> fits_, tried_;
};

/// Moves one of the settings along its steps while that gains.
template <std::size_t n>
void climb(Prediction& prediction, PeakAssumptions& best, double& gain,
           double PeakAssumptions::*setting, const std::array<double, n>& steps) {
  auto at = std::size_t(std::min_element(steps.begin(), steps.end(),
                                         [&](double a, double b) {
                                           return std::abs(a - best.*setting) <
                                                  std::abs(b - best.*setting);
                                         }) -
                        steps.begin());
  for (const int direction : {1, -1}) {
    bool moved = false;
    for (;;) {
      if (direction > 0 ? at + 1 == n : at == 0) break;
      PeakAssumptions next = best;
      next.*setting = steps[direction > 0 ? at + 1 : at - 1];
      const double with = prediction.gain(next);
      if (with < gain + worth_it) break;
      prediction.keep();
      best = next;
      gain = with;
      at = direction > 0 ? at + 1 : at - 1;
      moved = true;
    }
    if (moved) break;
  }
}

}  // namespace

ChosenAssumptions choose_assumptions(std::span<const ListingStudy> studies, const Mask& mask,
                                     std::optional<double> known_tau2) {
  ChosenAssumptions chosen;
  if (known_tau2) chosen.assumptions.tau2 = *known_tau2;
  std::size_t listing = 0, peaks = 0;
  for (const ListingStudy& study : studies) {
    listing += study.peaks.empty() ? 0 : 1;
    peaks += study.peaks.size();
  }
  if (listing < fewest_studies || peaks < fewest_peaks) return chosen;
  std::vector<ListingStudy> some;
  const std::size_t count = std::min(studies.size(), most_studies);
  for (std::size_t s = 0; s < count; ++s) some.push_back(studies[s * studies.size() / count]);
  const double effect_sd = std::exchange(chosen.assumptions.effect_sd, effect_sd_of_predictions);
  Prediction prediction(std::move(some), mask);
  double gain = prediction.gain(chosen.assumptions);
  prediction.keep();
  if (prediction.mean_share() < enough_listed) known_tau2 = chosen.assumptions.tau2;
  if (!known_tau2) climb(prediction, chosen.assumptions, gain, &PeakAssumptions::tau2, tau2_steps);
  climb(prediction, chosen.assumptions, gain, &PeakAssumptions::width, width_steps);
  climb(prediction, chosen.assumptions, gain, &PeakAssumptions::smoothness, smoothness_steps);
  if (!known_tau2) climb(prediction, chosen.assumptions, gain, &PeakAssumptions::tau2, tau2_steps);
  chosen.assumptions.effect_sd = effect_sd;
  chosen.by_prediction = true;
  chosen.tau2_by_prediction = !known_tau2;
  return chosen;
}

}  // namespace kvo::model
