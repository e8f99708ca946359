#pragma once

// The likelihood of the coefficients' fields (peak_fit.h), as the sum over the studies that have
// peaks.

#include <Eigen/Core>
#include <memory>
#include <span>
#include <vector>

#include "engine/model/peak_fit.h"
#include "engine/model/peak_likelihood.h"

namespace kvo::model {

/// A field of each coefficient: its values in the cells, or its noise (FieldPrior).
using Fields = std::vector<Eigen::VectorXd>;

/// The coefficients in the cells that the noise makes.
Fields in_cells(const PeakFit& fit, const Fields& noise);
/// The effect in the cells in a study of that row of the design.
Eigen::VectorXd effect_of(const Fields& cells, const Eigen::VectorXd& row);
/// The effect at a place in a study of that row of the design.
double effect_at(const PeakFit& fit, const FieldPlace& place, const Fields& noise,
                 const Eigen::VectorXd& row);
/// Whether a peak lies in a cell that has a part in the mask, by the cells' volumes in it.
bool lies_in(const ListedPeak& peak, const Eigen::VectorXd& volumes);

/// The studies and the fit, of which it takes all but the noise, must outlive it.
class FieldsLikelihood {
 public:
  FieldsLikelihood(std::span<const ListingStudy> studies, const Mask& mask, const PeakFit& fit);

  /// Of the cells, in the mask, in mm³.
  [[nodiscard]] const Eigen::VectorXd& volumes() const { return volumes_; }

  /// Finds the listed share of each study by the fields, and takes them.
  void find_shares(const Fields& cells, std::vector<double>& shares);
  void take_shares(std::span<const double> shares);

  /// Its natural logarithm, but for a constant.
  [[nodiscard]] double value(const Fields& noise, const Fields& cells) const;
  /// Its derivative by the noise of the fields, without the prior's, and the expected information
  /// of the cells: the lower triangle, row by row.
  void derivatives(const Fields& noise, const Fields& cells, Fields& slope,
                   Fields& information) const;

 private:
  /// A listed peak that lies in the mask.
  struct Placed {
    std::size_t study;
    FieldPlace place;
    const ListedPeak* peak;
  };
  /// Studies that have the same row of the design, whose expected peaks are added up.
  struct Group {
    Eigen::VectorXd row;
    std::vector<std::size_t> studies;
    LikelihoodTable expected;  ///< peaks per mm³, by the effect
  };

  std::shared_ptr<const StudyLikelihood> likelihood_of(const ListingStudy& study,
                                                       const PeakDensity& density) const;
  [[nodiscard]] StudyLikelihood::Value of_peak(const Placed& placed, const Fields& noise) const;

  std::span<const ListingStudy> studies_;
  const PeakFit& fit_;
  Eigen::VectorXd volumes_;
  std::vector<std::shared_ptr<const StudyLikelihood>> likelihoods_;
  std::vector<std::size_t> listed_;
  std::vector<Placed> peaks_;
  std::vector<Group> groups_;
};

}  // namespace kvo::model
