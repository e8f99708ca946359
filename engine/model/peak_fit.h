#pragma once

// Effects from the peaks that studies list: the peaks as a marked point process over the brain.
//
// The peaks of a study are those that it lists of the local maxima of a smooth field. At v the
// field has the mean g(v) = x'b(v), with x the study's row of the design, and the variance s², that
// of the study's g plus tau². For |h| above the study's threshold u, maxima of height h have the
// density rho((h - g)/s)/s, where rho is the density of local maxima of a field of mean 0 and
// variance 1 (peak_density.h). Tables have the highest of them: of the maxima of one sign in a
// volume, the study's realm V, the study is taken to list only the highest. With a Poisson
// distribution of higher ones, it lists the share a = exp(-V F(h)), where F(h) is the number of
// maxima above h per mm³; V is such that as many peaks are expected over the mask as the study has.
// So what a study does not list says little where effects are large and it lists few of its maxima,
// and much where it lists them all.
//
// The slope with respect to g is what the peaks' heights, log rho((h - g)/s)/s, or places, log
// F(u), add to it, less the expectation of that among listed peaks: an estimating equation that is
// right whatever a is. Unlike the likelihood's own slope, it does not let the share a change with
// g, which would take peaks that lie close together for a sign of small effects. Its information is
// Godambe's (Varin, Reid and Firth 2011, Statistica Sinica 21:5). Where all is listed it is the
// likelihood.
//
// The coefficients b are smooth fields (field_prior.h): a log-Gaussian Cox process (Møller,
// Syversveen and Waagepetersen 1998, Scandinavian Journal of Statistics 25:451) with marks; the
// estimate is the mode of their posterior, found by Newton's method with the expected information,
// and its covariance that of the Laplace approximation (Rue, Martino and Chopin 2009, Journal of
// the Royal Statistical Society B 71:319), from random draws of it (Papandreou and Yuille 2010,
// Gaussian sampling by local perturbations, NIPS 23).

#include <Eigen/Core>
#include <span>
#include <vector>

#include "engine/images/mask.h"
#include "engine/model/field_prior.h"
#include "engine/model/model_layer.h"
#include "engine/studies/effect_size.h"

namespace kvo::model {

struct ListedPeak {
  Eigen::Vector3d mm;  ///< in MNI space
  double g;            ///< its height; if unknown, only its sign counts
  bool height_known = true;
};

/// What a study lists, and what it would list.
struct ListingStudy {
  VarianceOfG variance;
  double threshold;  ///< in g, above 0
  std::vector<ListedPeak> peaks;
  Eigen::VectorXd row;  ///< of the design
};

/// What is assumed about all studies. The between-study variance is that found in 21 studies of
/// pain with public images (NeuroVault collection 1425).
struct PeakAssumptions {
  double tau2 = 0.07;      ///< between the studies
  double smoothness = 11;  ///< FWHM of a study's map, mm
  double width = 28;       ///< FWHM of the autocorrelation of the coefficients, mm
  double effect_sd = 0.8;  ///< of the first coefficient, a priori
  double slope_sd = 0.4;   ///< of the others

  bool operator==(const PeakAssumptions&) const = default;
};

/// The posterior mode of the coefficients' fields, in terms of their noise (FieldPrior).
struct PeakFit {
  PeakAssumptions assumptions;
  FieldPrior prior;
  std::vector<Eigen::VectorXd> noise;
  std::vector<double> shares;                ///< the listed share of each study
  std::vector<double> realms;                ///< in mm³, of each study; 0 where it lists all
  std::vector<Eigen::VectorXd> information;  ///< of the cells: the lower triangle, row by row

  double unknown_heights = 0;  ///< the share of peaks of unknown height

  [[nodiscard]] double sd(std::size_t coefficient) const {
    return coefficient == 0 ? assumptions.effect_sd : assumptions.slope_sd;
  }
};

/// Where a fit starts, and which of its parameters are fixed.
struct FitStart {
  const PeakFit* near = nullptr;        ///< a fit to much the same; it saves work
  std::span<const double> shares = {};  ///< the listed share of each study
};

/// Fits the fields of all coefficients to the studies' peaks in the mask.
PeakFit fit_peaks(std::span<const ListingStudy> studies, const Mask& mask,
                  const PeakAssumptions& assumptions, const FitStart& start = {});
/// The same with less precision, enough to compare assumptions. Starting from a fit to similar
/// studies under similar assumptions saves work; null for none.
PeakFit fit_roughly(std::span<const ListingStudy> studies, const Mask& mask,
                    const PeakAssumptions& assumptions, const PeakFit* start);

/// Estimates and their covariances (the lower triangle, row by row) in the voxels of the mask.
struct PeakEstimates {
  std::vector<std::vector<float>> estimates, covariances;
};
PeakEstimates estimates_of(const PeakFit& fit, const Mask& mask);

/// The mean of the first coefficient over the voxels of a region, which must have some, and its
/// variance.
struct RegionMean {
  double mean, variance;
};
RegionMean region_mean(const PeakFit& fit, const Mask& region);

/// The maximum of the posterior where the first coefficient has that mean over the region, with the
/// realms of the fit; as a natural logarithm, relative to that of the first point.
struct ProfilePoint {
  double mean, log_density;
};
/// The profile at the fit's mean of the region and at about these numbers of standard errors from
/// it.
std::vector<ProfilePoint> region_profile(const PeakFit& fit, std::span<const ListingStudy> studies,
                                         const Mask& mask, const Mask& region,
                                         std::span<const double> standard_errors);

/// How well a fit to other studies predicts the places and heights of the studies' peaks in the
/// mask: the natural logarithm of their density, per mm³ and unit of g, among all that each study
/// might have listed.
struct Foretold {
  double sum = 0;  ///< over the peaks
  std::size_t peaks = 0;
};
Foretold foretold(const PeakFit& fit, std::span<const ListingStudy> studies, const Mask& mask);

}  // namespace kvo::model
