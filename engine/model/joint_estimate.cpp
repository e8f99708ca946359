#include "engine/model/joint_estimate.h"

#include <algorithm>
#include <cmath>
#include <optional>

#include "engine/base/parallel.h"
#include "engine/base/progress.h"
#include "engine/model/pooling.h"
#include "engine/model/small_symmetric.h"

namespace kvo::model {

namespace {

constexpr double tau2_floor = 0.005, tau2_ceiling = 0.5;
/// How a study selects the maxima it lists is unknown. In simulations of studies that list one to
/// four maxima per cluster, maxima some distance apart, or all of them, the effect varies by this
/// much, in g, in proportion to the share of maxima not listed.
constexpr double doubt_of_unlisted = 0.25;
/// The same for peaks reported without a height: effects then come out too small.
constexpr double doubt_of_heights = 0.4;

/// The mean over the voxels of the between-study variance of the images.
std::optional<double> tau2_of_images(const MetaAnalysis& meta, const StudyMaps& maps) {
  const std::size_t voxels = meta.mask.size();
  std::vector<const float*> g, var;
  for (std::size_t s = 0; s < meta.members.size(); ++s) {
    if (!meta.members[s].has_image) continue;
    g.push_back(maps.g[s].data());
    var.push_back(maps.var[s].data());
  }
  if (g.size() < enough_images) return std::nullopt;
  std::vector<float> tau2(voxels), z(voxels);
  pool(g, var, voxels, {.z = z.data(), .tau2 = tau2.data()});
  double sum = 0;
  for (const float value : tau2) sum += double(value);
  return std::clamp(sum / double(voxels), tau2_floor, tau2_ceiling);
}

/// Estimates voxel by voxel.
class Voxels {
 public:
  Voxels(const MetaAnalysis& meta, const Design& design, const StudyMaps& maps,
         const PeakEstimates& peaks, const PeakAssumptions& assumptions, JointEstimate& to)
      : meta_(meta),
        design_(design),
        maps_(maps),
        peaks_(peaks),
        assumptions_(assumptions),
        p_(design.coefficients()),
        to_(to) {
    for (const Member& member : meta.members)
      variances_.push_back(variance_of_g(member.study.sample));
  }

  void estimate(std::size_t v) {
    SmallVector b{};
    SmallSymmetric covariance{};
    for (std::size_t j = 0; j < p_; ++j) b[j] = double(peaks_.estimates[j][v]);
    for (std::size_t m = 0; m < triangle_size(p_); ++m)
      covariance[m] = double(peaks_.covariances[m][v]);
    covariance[0] += to_.facts.listing_doubt * to_.facts.listing_doubt;
    if (to_.facts.images > 0) {
      const SmallVector of_peaks = b;
      const SmallSymmetric known = inverse_of(covariance, p_);
      // Twice, as the variances of the images depend on the estimate.
      for (int round = 0; round < 2; ++round) add_images(v, of_peaks, known, b, covariance);
    }
    leave(v, b, covariance, inverse_of(information_of_all(b), p_));
  }

 private:
  [[nodiscard]] double effect(std::size_t s, const SmallVector& b) const {
    double effect = 0;
    for (std::size_t j = 0; j < p_; ++j) effect += basis(s, j) * b[j];
    return effect;
  }
  [[nodiscard]] double basis(std::size_t s, std::size_t j) const {
    return design_.basis(Eigen::Index(s), Eigen::Index(j));
  }
  [[nodiscard]] double variance(std::size_t s, const SmallVector& b) const {
    return variances_[s].at(effect(s, b)) + assumptions_.tau2;
  }

  /// b and its covariance become those of the peaks and the images together.
  void add_images(std::size_t v, const SmallVector& of_peaks, const SmallSymmetric& known,
                  SmallVector& b, SmallSymmetric& covariance) const {
    SmallSymmetric A = known;
    SmallVector product{};
    for (std::size_t j = 0; j < p_; ++j)
      for (std::size_t k = 0; k < p_; ++k) product[j] += known[in_triangle(j, k)] * of_peaks[k];
    for (std::size_t s = 0; s < variances_.size(); ++s) {
      if (!meta_.members[s].has_image) continue;
      const double weight = 1 / variance(s, b), y = double(maps_.g[s][v]);
      for (std::size_t j = 0; j < p_; ++j) {
        product[j] += weight * basis(s, j) * y;
        for (std::size_t k = 0; k <= j; ++k)
          A[in_triangle(j, k)] += weight * basis(s, j) * basis(s, k);
      }
    }
    covariance = inverse_of(A, p_);
    for (std::size_t j = 0; j < p_; ++j) {
      b[j] = 0;
      for (std::size_t k = 0; k < p_; ++k) b[j] += covariance[in_triangle(j, k)] * product[k];
    }
  }

  /// The information that images of all the studies would give.
  [[nodiscard]] SmallSymmetric information_of_all(const SmallVector& b) const {
    SmallSymmetric A{};
    for (std::size_t s = 0; s < variances_.size(); ++s) {
      const double weight = 1 / variance(s, b);
      for (std::size_t j = 0; j < p_; ++j)
        for (std::size_t k = 0; k <= j; ++k)
          A[in_triangle(j, k)] += weight * basis(s, j) * basis(s, k);
    }
    return A;
  }

  /// Stores the voxel's values in the maps.
  void leave(std::size_t v, const SmallVector& b, const SmallSymmetric& covariance,
             const SmallSymmetric& of_images) {
    SmallSymmetric before{};  // the prior's covariance
    for (std::size_t j = 0; j < p_; ++j) {
      const double sd = j == 0 ? assumptions_.effect_sd : assumptions_.slope_sd;
      before[in_triangle(j, j)] = sd * sd;
    }
    for (std::size_t t = 0; t < p_; ++t) {
      const double var = term_variance(design_, t, covariance);
      const double learnt = 1 / var - 1 / term_variance(design_, t, before);
      to_.g[t][v] = float(term_of(design_, t, b));
      to_.var[t][v] = float(var);
      to_.info[t][v] = float(std::clamp(learnt * term_variance(design_, t, of_images), 0.0, 1.0));
    }
  }

  const MetaAnalysis& meta_;
  const Design& design_;
  const StudyMaps& maps_;
  const PeakEstimates& peaks_;
  const PeakAssumptions& assumptions_;
  std::size_t p_;
  JointEstimate& to_;
  std::vector<VarianceOfG> variances_;
};

}  // namespace

bool has_peaks(const MetaAnalysis& meta) {
  return std::any_of(meta.members.begin(), meta.members.end(),
                     [](const Member& member) { return !member.has_image; });
}

ListingStudy listing_of(const Member& member, Eigen::VectorXd row, double assumed_p) {
  const Sample sample = member.study.sample;
  const Threshold threshold = threshold_of(member.study);
  const double t = threshold.assumed ? t_of_p(assumed_p, sample) : threshold.t;
  ListingStudy study{variance_of_g(sample), hedges_g(t, sample), {}, std::move(row)};
  for (const Peak& peak : member.peaks) {
    study.peaks.push_back({peak.mm, peak.g, peak.height_known});
    // A study that lists lower peaks has a lower threshold than is assumed.
    if (peak.height_known && peak.g != 0)
      study.threshold = std::min(study.threshold, std::abs(peak.g));
  }
  return study;
}

double listing_doubt_of(const PeakFit& fit) {
  double sum = 0;
  for (const double share : fit.shares) sum += share;
  return std::hypot(doubt_of_unlisted * (1 - sum / double(fit.shares.size())),
                    doubt_of_heights * fit.unknown_heights);
}

JointFit fit_jointly(const MetaAnalysis& meta, const Design& design, const StudyMaps& maps,
                     Action& action) {
  JointFacts facts;
  std::vector<ListingStudy> listing;
  for (std::size_t s = 0; s < meta.members.size(); ++s) {
    const Member& member = meta.members[s];
    if (member.has_image) {
      ++facts.images;
      continue;
    }
    listing.push_back(listing_of(member, design.basis.row(Eigen::Index(s)).transpose()));
    facts.thresholds_assumed += threshold_of(member.study).assumed ? 1 : 0;
  }
  facts.studies_with_peaks = listing.size();
  const std::optional<double> tau2 = tau2_of_images(meta, maps);
  facts.tau2_of_images = tau2.has_value();
  facts.chosen = choose_assumptions(listing, meta.mask, tau2);
  action.step();
  PeakFit fit = fit_peaks(listing, meta.mask, facts.chosen.assumptions);
  facts.shares = fit.shares;
  facts.listing_doubt = listing_doubt_of(fit);
  action.step();
  return {std::move(listing), std::move(facts), std::move(fit)};
}

JointEstimate estimate_jointly(const MetaAnalysis& meta, const Design& design,
                               const StudyMaps& maps) {
  const std::size_t p = design.coefficients(), voxels = meta.mask.size();
  JointEstimate joint{std::vector(p, std::vector<float>(voxels)), {}, {}, {}};
  joint.var = joint.info = joint.g;
  Action action("Estimating the effects from peaks", 4);
  JointFit fitted = fit_jointly(meta, design, maps, action);
  joint.facts = std::move(fitted.facts);
  const PeakFit& fit = fitted.fit;
  const PeakEstimates of_peaks = estimates_of(fit, meta.mask);
  action.step();
  Voxels each(meta, design, maps, of_peaks, fit.assumptions, joint);
  in_parallel((voxels + piece_voxels - 1) / piece_voxels, [&](std::size_t piece, std::size_t) {
    const std::size_t end = std::min((piece + 1) * piece_voxels, voxels);
    for (std::size_t v = piece * piece_voxels; v < end; ++v) each.estimate(v);
  });
  action.step();
  action.finish();
  return joint;
}

}  // namespace kvo::model
