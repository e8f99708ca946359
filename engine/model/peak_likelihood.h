#pragma once

// The likelihood of what one study lists, as a function of the effect.

#include <array>
#include <span>
#include <vector>

#include "engine/model/peak_density.h"
#include "engine/model/peak_fit.h"

namespace kvo::model {

/// A function of the effect with its derivative, and the expected information that goes with it.
class LikelihoodTable {
 public:
  LikelihoodTable();
  struct Value {
    double value, slope, information;
  };
  [[nodiscard]] Value at(double effect) const;
  void add(const LikelihoodTable& other);
  /// Adds a volume with that effect to the volumes that each effect of the table stands for.
  static void add_volume(double effect, double volume, std::span<double> volumes);

  static constexpr double lowest = -3, highest = 4, step = 0.05;
  static constexpr auto effects = std::size_t((highest - lowest) / step + 1.5);
  static constexpr double effect(std::size_t i) { return lowest + double(i) * step; }
  std::vector<double> values, information;
};

/// Until it takes a realm, a study lists all maxima beyond its threshold.
class StudyLikelihood {
 public:
  StudyLikelihood(const ListingStudy& study, double tau2, const PeakDensity& density);

  /// The number of peaks that the study lists in such volumes (add_volume()), with a realm in mm³.
  [[nodiscard]] double listed(std::span<const double> volumes, double realm) const;
  /// The realm with which it lists that many, which must be above 0; 0 if that is more than all.
  [[nodiscard]] double realm_of(std::span<const double> volumes, double listed) const;
  void take_realm(double realm);
  [[nodiscard]] double realm() const { return realm_; }

  /// The peaks that the study is expected to list per mm³, and their information.
  LikelihoodTable expected;
  /// What each mm³ subtracts from the log-likelihood, up to a constant.
  LikelihoodTable silence;

  /// What a peak adds to it.
  struct Value {
    double value, slope;
  };
  [[nodiscard]] Value of_peak(const ListedPeak& peak, double effect) const;
  /// The logarithm of the density of listed peaks of that height, per mm³ and unit of g.
  [[nodiscard]] double log_listed(const ListedPeak& peak, double effect) const;

 private:
  /// Peaks per mm³ at an effect of the table.
  [[nodiscard]] double listed_at(std::size_t effect, double realm) const;
  /// What the listed peaks of a mm³ add to the slope at an effect of the table, and their
  /// information.
  struct Score {
    double expected, information;
  };
  [[nodiscard]] Score score_at(std::size_t effect) const;
  /// Maxima of that sign farther from 0 than the height, per mm³, listed or not.
  [[nodiscard]] Value maxima_beyond(double height, double sign, double effect) const;

  VarianceOfG variance_;
  double tau2_, threshold_, realm_ = 0;
  double unknown_heights_ = 0;  ///< the share of peaks of unknown height
  PeakDensity density_;
  std::array<std::vector<double>, 2>
      maxima_;  ///< positive and negative ones at the table's effects
};

}  // namespace kvo::model
