#include "engine/model/region_estimate.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "engine/base/distributions.h"
#include "engine/base/parallel.h"

namespace kvo::model {

namespace {

constexpr std::array other_thresholds{0.01, 0.001, 0.0001};
constexpr std::array other_factors{0.75, 1.25};
/// Where the curve is computed, in standard errors of the estimate from the peaks.
constexpr std::array curve_places{-3.5, -3.0, -2.5, -2.0, -1.5, -1.0, -0.5,
                                  0.5,  1.0,  1.5,  2.0,  2.5,  3.0,  3.5};
constexpr int curve_points = 161;
constexpr double curve_reach = 4;  ///< in standard errors of the estimate

using Values = std::vector<std::optional<Effect>>;

/// The mean and the variance of a normal distribution.
struct Normal {
  double mean, variance;
};

Estimate estimate_of(const Normal& normal) {
  const double se = std::sqrt(normal.variance), z = normal.mean / se,
               half = normal_quantile(0.975) * se;
  return {
      normal.mean, se, z, 2 * normal_tail(std::abs(z)), {normal.mean - half, normal.mean + half},
      std::nullopt};
}

/// The estimate from the images, if there are any.
std::optional<Normal> of_images(std::span<const std::optional<Effect>> values, double tau2) {
  double weights = 0, sum = 0;
  for (const std::optional<Effect>& value : values) {
    if (!value) continue;
    weights += 1 / (value->variance + tau2);
    sum += value->g / (value->variance + tau2);
  }
  if (weights == 0) return std::nullopt;
  return Normal{sum / weights, 1 / weights};
}

Normal together(const Normal& a, const std::optional<Normal>& b) {
  if (!b) return a;
  const double weights = 1 / a.variance + 1 / b->variance;
  return {(a.mean / a.variance + b->mean / b->variance) / weights, 1 / weights};
}

/// The estimate of the region from the peaks of a fit.
Normal of_peaks(const PeakFit& fit, const Mask& region) {
  const RegionMean mean = region_mean(fit, region);
  const double doubt = listing_doubt_of(fit);
  return {mean.mean, mean.variance + doubt * doubt};
}

/// The estimate under assumptions other than those of the fit that it begins with.
class Variations {
 public:
  Variations(const MetaAnalysis& meta, const JointFit& joint,
             std::span<const std::optional<Effect>> values, const Mask& region)
      : meta_(meta), joint_(joint), values_(values.begin(), values.end()), region_(region) {
    for (const double factor : other_factors) planned_.push_back({Of::share, factor, {}});
    for (const double factor : other_factors) planned_.push_back({Of::smoothness, factor, {}});
    if (joint.facts.thresholds_assumed > 0)
      for (const double p : other_thresholds) planned_.push_back({Of::threshold, p, {}});
  }

  std::vector<Sensitivity> estimate(Action& action) {
    in_parallel(planned_.size(), [&](std::size_t i, std::size_t) {
      const Sensitivity& one = planned_[i];
      const bool is_as_assumed = one.of == Of::threshold && one.value == assumed_threshold_p;
      planned_[i].estimate = is_as_assumed ? estimate_with(joint_.fit) : with(one.of, one.value);
      action.step();
    });
    return planned_;
  }

  /// The estimate without one of the studies.
  [[nodiscard]] Estimate without(std::size_t left_out) const {
    Values values = values_;
    std::vector<ListingStudy> listing;
    for (std::size_t s = 0, peaks = 0; s < meta_.members.size(); ++s) {
      if (meta_.members[s].has_image) continue;
      if (s != left_out) listing.push_back(joint_.listing[peaks]);
      ++peaks;
    }
    values[left_out].reset();
    const PeakAssumptions& assumptions = joint_.fit.assumptions;
    const auto images = of_images(values, assumptions.tau2);
    if (listing.empty() && images) return estimate_of(*images);
    if (listing.size() == joint_.listing.size())
      return estimate_of(together(of_peaks(joint_.fit, region_), images));
    const PeakFit fit = fit_peaks(listing, meta_.mask, assumptions, {&joint_.fit});
    return estimate_of(together(of_peaks(fit, region_), images));
  }

 private:
  using Of = Sensitivity::Of;

  [[nodiscard]] Estimate with(Of of, double value) const {
    std::vector<ListingStudy> listing = joint_.listing;
    PeakAssumptions assumptions = joint_.fit.assumptions;
    FitStart start{&joint_.fit};
    std::vector<double> shares;
    if (of == Of::threshold) {
      std::size_t peaks = 0;
      for (const Member& member : meta_.members)
        if (!member.has_image) {
          listing[peaks] = listing_of(member, listing[peaks].row, value);
          ++peaks;
        }
    } else if (of == Of::share) {
      for (const double share : joint_.fit.shares) shares.push_back(std::min(1.0, value * share));
      start.shares = shares;
    } else {
      assumptions.smoothness *= value;
    }
    const PeakFit fit = fit_peaks(listing, meta_.mask, assumptions, start);
    return estimate_with(fit);
  }
  [[nodiscard]] Estimate estimate_with(const PeakFit& fit) const {
    return estimate_of(together(of_peaks(fit, region_), of_images(values_, fit.assumptions.tau2)));
  }

  const MetaAnalysis& meta_;
  const JointFit& joint_;
  Values values_;
  const Mask& region_;
  std::vector<Sensitivity> planned_;
};

/// The log density given the peaks, at any mean: its difference from a parabola is interpolated
/// linearly between the points of a profile.
class PeaksCurve {
 public:
  PeaksCurve(std::vector<ProfilePoint> profile, double variance)
      : centre_(profile[0].mean), variance_(variance), points_(std::move(profile)) {
    std::sort(points_.begin(), points_.end(),
              [](const ProfilePoint& a, const ProfilePoint& b) { return a.mean < b.mean; });
    for (ProfilePoint& point : points_) point.log_density -= parabola(point.mean);
  }

  [[nodiscard]] double log_density(double mean) const {
    const auto after = std::upper_bound(
        points_.begin(), points_.end(), mean,
        [](double value, const ProfilePoint& point) { return value < point.mean; });
    double difference = 0;
    if (after == points_.begin()) {
      difference = points_.front().log_density;
    } else if (after == points_.end()) {
      difference = points_.back().log_density;
    } else {
      const ProfilePoint &low = *(after - 1), &high = *after;
      const double part = (mean - low.mean) / (high.mean - low.mean);
      difference = low.log_density + part * (high.log_density - low.log_density);
    }
    return parabola(mean) + difference;
  }

 private:
  [[nodiscard]] double parabola(double mean) const {
    return -(mean - centre_) * (mean - centre_) / (2 * variance_);
  }

  double centre_, variance_;
  std::vector<ProfilePoint> points_;
};

/// The curve of the region: the profile of the peaks, widened by the doubt about what is listed,
/// times the likelihood of the images.
std::vector<CurvePoint> curve_of(const MetaAnalysis& meta, const JointFit& joint,
                                 const std::optional<Normal>& images, const Estimate& estimate,
                                 const Mask& region) {
  const double variance = region_mean(joint.fit, region).variance;
  const PeaksCurve peaks(region_profile(joint.fit, joint.listing, meta.mask, region, curve_places),
                         variance);
  constexpr int doubts = 20;  // to either side, over three standard deviations each
  std::vector<CurvePoint> curve;
  double peak = 0;
  for (int i = 0; i < curve_points; ++i) {
    const double g =
        estimate.value + estimate.se * curve_reach * (2.0 * i / (curve_points - 1) - 1);
    double density = 0;
    for (int d = -doubts; d <= doubts; ++d) {
      const double z = 3.0 * d / doubts;
      density += std::exp(peaks.log_density(g + z * joint.facts.listing_doubt) - z * z / 2);
    }
    if (images)
      density *= std::exp(-(g - images->mean) * (g - images->mean) / (2 * images->variance));
    peak = std::max(peak, density);
    curve.push_back({g, density});
  }
  for (CurvePoint& point : curve) point.density /= peak > 0 ? peak : 1;
  return curve;
}

}  // namespace

RegionEstimate estimate_region(const MetaAnalysis& meta, const StudyMaps& images,
                               std::span<const std::optional<Effect>> values, const Mask& region) {
  const std::size_t studies = meta.members.size();
  const std::size_t left_out = studies > 1 && studies <= most_left_out ? studies : 0;
  const std::size_t variations = 2 * other_factors.size() + other_thresholds.size();
  Action action("Estimating the effect of the region from peaks", 3 + variations + left_out, 20);
  JointFit joint = fit_jointly(meta, make_design({}, studies), images, action);
  const double tau2 = joint.fit.assumptions.tau2;
  const std::optional<Normal> by_images = of_images(values, tau2);
  RegionEstimate result{
      joint.facts, estimate_of(together(of_peaks(joint.fit, region), by_images)), {}, {}, {}, {}};
  for (const std::optional<Effect>& value : values) {
    result.weights.emplace_back();
    if (value)
      result.weights.back() =
          100 * result.estimate.se * result.estimate.se / (value->variance + tau2);
  }
  result.curve = curve_of(meta, joint, by_images, result.estimate, region);
  action.step();
  Variations vary(meta, joint, values, region);
  result.sensitivity = vary.estimate(action);
  result.without.resize(left_out);
  in_parallel(left_out, [&](std::size_t s, std::size_t) {
    result.without[s] = vary.without(s);
    action.step();
  });
  action.finish();
  return result;
}

PeaksNearby peaks_nearby(std::span<const Peak> peaks, const Mask& region) {
  const Grid& grid = mni_grid();
  constexpr int reach = nearby_mm / voxel_mm + 1;
  PeaksNearby result;
  for (const Peak& peak : peaks) {
    const Eigen::Vector3d from_first = (peak.mm - grid.mm({0, 0, 0})) / voxel_mm;
    const Voxel at{int(std::lround(from_first[0])), int(std::lround(from_first[1])),
                   int(std::lround(from_first[2]))};
    bool nearby = false;
    for (int k = at.k - reach; k <= at.k + reach; ++k)
      for (int j = at.j - reach; j <= at.j + reach; ++j)
        for (int i = at.i - reach; i <= at.i + reach; ++i)
          nearby = nearby || (grid.holds(i, j, k) && region.inside[grid.index(i, j, k)] &&
                              (grid.mm({i, j, k}) - peak.mm).norm() <= nearby_mm);
    if (!nearby) continue;
    ++result.nearby;
    if (grid.holds(at) && region.inside[grid.index(at)]) ++result.inside;
    const auto height = [](const Peak& other) {
      return other.height_known ? std::abs(other.g) : -1.0;
    };
    if (!result.highest || height(peak) > height(*result.highest)) result.highest = peak;
  }
  return result;
}

}  // namespace kvo::model
