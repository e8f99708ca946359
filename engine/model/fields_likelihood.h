#pragma once

// The likelihood of the coefficients' fields (peak_fit.h), as the sum over the studies that have
// peaks.

#include <Eigen/Core>
#include <span>
#include <vector>

#include "engine/model/peak_fit.h"
#include "engine/model/peak_likelihood.h"

namespace kvo::model {

/// A field for each coefficient: its values in the cells, or its noise (FieldPrior).
using Fields = std::vector<Eigen::VectorXd>;

/// The coefficients in the cells, from the noise.
Fields in_cells(const PeakFit& fit, const Fields& noise);
/// The effect in the cells in a study with that row of the design.
Eigen::VectorXd effect_of(const Fields& cells, const Eigen::VectorXd& row);
/// The effect at a place in a study with that row of the design.
double effect_at(const PeakFit& fit, const FieldPlace& place, const Fields& noise,
                 const Eigen::VectorXd& row);
/// The volumes that each effect of a LikelihoodTable stands for, from the effect in the cells and
/// the cells' volumes in the mask.
std::vector<double> volumes_by_effect(const Eigen::VectorXd& effect,
                                      const Eigen::VectorXd& volumes);
/// A study without a peak is taken to list half of one.
inline constexpr double no_peaks = 0.5;
/// Whether a peak lies in a cell that is at least partly in the mask, given the cells' volumes in
/// it.
bool lies_in(const ListedPeak& peak, const Eigen::VectorXd& volumes);

/// The studies and the fit must outlive it. It uses all of the fit but the noise.
class FieldsLikelihood {
 public:
  FieldsLikelihood(std::span<const ListingStudy> studies, const Mask& mask, const PeakFit& fit);

  /// The cells' volumes in the mask, in mm³.
  [[nodiscard]] const Eigen::VectorXd& volumes() const { return volumes_; }

  /// Finds the listed share of each study from the fields, or keeps those given; then finds and
  /// takes the realms that lead to these shares.
  void find_realms(const Fields& cells, bool keeps_shares, std::vector<double>& shares,
                   std::vector<double>& realms);
  void take_realms(std::span<const double> realms);

  /// Its natural logarithm, up to a constant.
  [[nodiscard]] double value(const Fields& noise, const Fields& cells) const;
  /// Its derivative with respect to the noise of the fields, without the prior's, and the expected
  /// information of the cells: the lower triangle, row by row.
  void derivatives(const Fields& noise, const Fields& cells, Fields& slope,
                   Fields& information) const;

 private:
  /// A listed peak that lies in the mask.
  struct Placed {
    std::size_t study;
    FieldPlace place;
    const ListedPeak* peak;
  };
  /// Studies with the same row of the design, for which expected peaks are added up.
  struct Group {
    Eigen::VectorXd row;
    std::vector<std::size_t> studies;
    LikelihoodTable silence;
  };

  [[nodiscard]] StudyLikelihood::Value of_peak(const Placed& placed, const Fields& noise) const;

  std::span<const ListingStudy> studies_;
  const PeakFit& fit_;
  Eigen::VectorXd volumes_;
  std::vector<StudyLikelihood> likelihoods_;
  std::vector<std::size_t> listed_;
  std::vector<Placed> peaks_;
  std::vector<Group> groups_;
};

}  // namespace kvo::model
