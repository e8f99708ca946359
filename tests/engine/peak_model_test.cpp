// Effects from peaks: how many maxima a field has, by simulation (peak_heights.py) and in closed
// form; smooth fields; the likelihood of what a study lists, by numbers; and estimates of studies
// of every kind.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <omp.h>

#include <cmath>
#include <numbers>
#include <random>

#include "engine/images/gaussian.h"
#include "engine/model/joint_estimate.h"
#include "engine/model/peak_fit.h"
#include "engine/model/peak_likelihood.h"
#include "engine/model/peak_settings.h"
#include "table.h"

using namespace kvo::model;

namespace {

using Eigen::Vector3d, Eigen::VectorXd;

const Vector3d middle{0, -18, 18};

/// A ball about the middle, of 33,371 voxels.
const Mask& ball() {
  static const Mask made = [] {
    std::vector<bool> inside;
    for (std::size_t v = 0; v < mni_grid().voxels(); ++v)
      inside.push_back((mni_grid().mm(mni_grid().voxel(v)) - middle).norm() < 40);
    return mask_of(inside);
  }();
  return made;
}

Vector3d mm_in_ball(std::size_t n) {
  return mni_grid().mm(ball().voxel(n));
}

double mean_of(const std::vector<float>& map) {
  double sum = 0;
  for (const float value : map) sum += double(value);
  return sum / double(map.size());
}

ListingStudy study_of(int n, std::vector<ListedPeak> peaks, VectorXd row = VectorXd::Ones(1)) {
  const Sample sample{n, 0};
  return {variance_of_g(sample), hedges_g(t_of_p(0.001, sample), sample), std::move(peaks),
          std::move(row)};
}

/// Peaks of a study drawn from the model, of whose maxima it lists that share.
template <typename Effect>
std::vector<ListedPeak> drawn_peaks(int n, double share, const Effect& effect,
                                    std::mt19937& random) {
  const PeakAssumptions assumptions;
  const PeakDensity density(assumptions.smoothness);
  const ListingStudy silent = study_of(n, {});
  StudyLikelihood likelihood(silent, assumptions.tau2, density);
  std::vector<double> volumes(LikelihoodTable::effects);
  for (std::size_t v = 0; v < ball().size(); ++v)
    LikelihoodTable::add_volume(effect(mm_in_ball(v)), voxel_volume, volumes);
  likelihood.take_realm(likelihood.realm_of(volumes, share * likelihood.listed(volumes, 0)));
  std::uniform_real_distribution<double> uniform;
  std::vector<ListedPeak> peaks;
  for (std::size_t v = 0; v < ball().size(); ++v) {
    const double g = effect(mm_in_ball(v));
    if (uniform(random) > voxel_volume * likelihood.expected.at(g).value) continue;
    // By rejection, under a bound of the density of heights.
    for (;;) {
      const double height = silent.threshold + 4 * uniform(random);
      const double sign = uniform(random) < 0.5 ? -1 : 1;
      const ListedPeak peak{mm_in_ball(v), sign * height};
      if (uniform(random) * 3 * likelihood.expected.at(g).value <
          std::exp(likelihood.log_listed(peak, g))) {
        peaks.push_back(peak);
        break;
      }
    }
  }
  return peaks;
}

/// 0.8 in one place of the ball and a fifth of that far from it.
double bump(const Vector3d& mm) {
  return 0.16 + 0.64 * gaussian((mm - middle - Vector3d(0, 15, 0)).norm(), 15);
}

std::vector<ListingStudy> drawn_studies(std::size_t count, double share) {
  std::mt19937 random(11);
  std::vector<ListingStudy> studies;
  for (std::size_t s = 0; s < count; ++s) {
    const int n = 12 + int(s % 5) * 5;
    studies.push_back(study_of(n, drawn_peaks(n, share, bump, random)));
  }
  return studies;
}

TEST(PeakDensity, IsThatOfSimulatedFieldsAndOfKnownFormulas) {
  for (const Cells& row : read_table(KVO_PEAK_HEIGHTS, 3))
    EXPECT_NEAR(PeakDensity(1).above(std::stod(row[0])), std::stod(row[1]), 3 * std::stod(row[2]))
        << "above " << row[0];
  for (const double fwhm : {7.0, 14.0}) {
    const PeakDensity density(fwhm);
    // Of all heights: Bardeen et al. 1986, equation 4.11b.
    const double theta = fwhm / std::sqrt(4 * std::numbers::ln2), R = theta * std::sqrt(0.6);
    const double all =
        (29 - 6 * std::sqrt(6)) / (std::pow(5, 1.5) * 8 * std::pow(std::numbers::pi, 2));
    EXPECT_NEAR(density.above(-20) * R * R * R / all, 1, 1e-3);
    // Of great heights: the expected Euler characteristic (Worsley et al. 1996).
    for (const double height : {4.0, 5.0, 7.0}) {
      const double euler = std::pow(4 * std::numbers::ln2, 1.5) / std::pow(fwhm, 3) *
                           (height * height - 1) * std::exp(-height * height / 2) /
                           std::pow(2 * std::numbers::pi, 2);
      EXPECT_NEAR(density.above(height) / euler, 1, 0.01) << height;
    }
  }
}

TEST(FieldPrior, HasTheCorrelationAskedForAndTransposes) {
  std::mt19937 random(3);
  std::normal_distribution<double> normal;
  const auto noise = [&] {
    VectorXd values = VectorXd::Zero(Eigen::Index(FieldPrior::cells()));
    for (double& value : values) value = normal(random);
    return values;
  };
  const auto weights_at = [](const FieldPrior& prior, const Vector3d& mm) {
    VectorXd weights = VectorXd::Zero(Eigen::Index(FieldPrior::cells()));
    FieldPrior::add_to_noise(prior.place(mm), 1, weights);
    return weights;
  };
  for (const double width : {20.0, 28.0}) {
    const FieldPrior prior(width);
    for (const Vector3d& mm : {middle, Vector3d(-90, -126, -72), Vector3d(90, 90, 108),
                               Vector3d(31, 89, -70), Vector3d(-33.3, 20.1, 7)})
      EXPECT_NEAR(weights_at(prior, mm).squaredNorm(), 1, 1e-12) << mm.transpose();
    for (const Vector3d& step : {Vector3d(0.5, 0, 0), Vector3d(0.3, -0.4, 0), Vector3d(0, 0, 1)})
      EXPECT_NEAR(weights_at(prior, middle).dot(weights_at(prior, middle + width * step)),
                  std::pow(0.5, 4 * step.squaredNorm()), 0.02)
          << "of a width of " << width << ": " << step.transpose();
    const VectorXd z = noise(), f = noise();
    EXPECT_NEAR(prior.at_cells(z).dot(f), z.dot(prior.to_noise(f)), 1e-8);
    const std::vector<float> map = prior.in_mask(z, ball());
    for (std::size_t v = 0; v < ball().size(); v += 1001)
      EXPECT_NEAR(double(map[v]), FieldPrior::at(prior.place(mm_in_ball(v)), z), 1e-5);
  }
  EXPECT_EQ(FieldPrior::volumes(ball()).sum(), double(ball().size()) * voxel_volume);
  EXPECT_EQ(FieldPrior::cell_at({95, 0, 0}), FieldPrior::cell_at({0, 0, -75}));
}

/// Sums over the heights of what a study lists at an effect: their density, what they add to the
/// slope of the likelihood, the square and the derivative of that.
struct Listed {
  double density = 0, slope = 0, square = 0, curvature = 0;

  Listed(const ListingStudy& study, const StudyLikelihood& likelihood, double effect) {
    constexpr double dh = 0.002, d = 0.02;
    for (double h = study.threshold + dh / 2; h < 5; h += dh)
      for (const double height : {h, -h}) {
        const ListedPeak peak{middle, height};
        const double listed = std::exp(likelihood.log_listed(peak, effect)) * dh;
        const double by_effect = likelihood.of_peak(peak, effect).slope;
        density += listed;
        slope += listed * by_effect;
        square += listed * by_effect * by_effect;
        curvature += listed *
                     (likelihood.of_peak(peak, effect + d).slope -
                      likelihood.of_peak(peak, effect - d).slope) /
                     (2 * d);
      }
  }
};

/// The tables are such sums. The information is Godambe's: the square of how the slope falls with
/// the effect, by its variance.
TEST(StudyLikelihood, IsTheDensityOfWhatIsListedAndItsDerivatives) {
  const ListingStudy study = study_of(16, {});
  StudyLikelihood likelihood(study, 0.07, PeakDensity(11));
  for (const auto& [realm, effect] : {std::pair(0.0, -0.6),
                                      {0.0, 0.0},
                                      {0.0, 0.25},
                                      {0.0, 1.1},
                                      {5e4, -0.6},
                                      {5e4, 0.25},
                                      {5e4, 1.1}}) {
    likelihood.take_realm(realm);
    const Listed at(study, likelihood, effect);
    const LikelihoodTable::Value table = likelihood.expected.at(effect);
    EXPECT_NEAR(table.value / at.density, 1, 0.01) << effect;
    EXPECT_NEAR(
        likelihood.silence.at(effect + 0.025).slope + likelihood.silence.at(effect - 0.025).slope,
        2 * at.slope, 0.1 * std::abs(at.slope) + 1e-9)
        << effect;
    constexpr double step = 0.02;
    const double fall = (Listed(study, likelihood, effect + step).slope -
                         Listed(study, likelihood, effect - step).slope) /
                            (2 * step) -
                        at.curvature;
    EXPECT_NEAR(likelihood.silence.at(effect).information / (fall * fall / at.square), 1, 0.06)
        << effect << ", realm " << realm;
    for (const ListedPeak& peak :
         {ListedPeak{middle, 0.9}, ListedPeak{middle, -1.3}, ListedPeak{middle, 0.9, false}}) {
      constexpr double d = 1e-3;
      const double difference = likelihood.of_peak(peak, effect + 0.01 + d).value -
                                likelihood.of_peak(peak, effect + 0.01 - d).value;
      EXPECT_NEAR(likelihood.of_peak(peak, effect + 0.01).slope / (difference / (2 * d)), 1, 0.05)
          << peak.g << " at " << effect;
    }
  }
}

/// Whatever studies list, the numbers are finite; nothing is known where nothing is listed.
TEST(PeakFit, TakesStudiesOfEveryKind) {
  std::mt19937 random(5);
  std::normal_distribution<double> normal;
  const auto peaks = [&](std::size_t count, double spread, double height) {
    std::vector<ListedPeak> made;
    for (std::size_t n = 0; n < count; ++n)
      made.push_back(
          {middle + spread * Vector3d(normal(random), normal(random), normal(random)), height});
    return made;
  };
  const Vector3d apart(2, 0, 0);
  struct Case {
    const char* what;
    std::vector<ListingStudy> studies;
    double lowest, highest;  ///< what the estimate in the middle may be
    bool unknown;            ///< whether the mean width over the mask is that of the prior
  };
  const std::vector<Case> cases{
      {"one study without peaks", {study_of(20, {})}, -0.05, 0.05, true},
      {"300 silent studies", std::vector(300, study_of(20, {})), -0.1, 0.1, false},
      {"one peak", {study_of(20, {{middle, 1.2}})}, 0.05, 1.2, true},
      {"signs that differ",
       {study_of(20, {{middle, 1.2}, {middle + apart, -1.2}})},
       -0.1,
       0.1,
       true},
      {"peaks outside", {study_of(20, {{{0, 60, 60}, 1.2}, {{500, 0, 0}, 1}})}, -0.05, 0.05, true},
      {"2,000 peaks", {study_of(20, peaks(2000, 12, 1.2))}, 0.3, 3, false},
      {"enormous heights", {study_of(20, peaks(20, 12, 50))}, 0.3, 50, false},
      {"unknown heights", std::vector(20, study_of(20, {{middle, 1, false}})), 0.1, 3, false},
      {"300 studies", std::vector(300, study_of(20, peaks(5, 10, 0.9))), 0.2, 1.2, false},
      {"huge studies", std::vector(9, study_of(20000, peaks(5, 10, 0.5))), 0, 1, false},
      {"a tiny study", {study_of(3, {{middle, 12}})}, 0.05, 12, true},
  };
  const PeakAssumptions assumptions;
  for (const Case& one : cases) {
    const PeakFit fit = fit_peaks(one.studies, ball(), assumptions);
    const PeakEstimates maps = estimates_of(fit, ball());
    for (std::size_t v = 0; v < ball().size(); ++v)
      ASSERT_TRUE(std::isfinite(maps.estimates[0][v]) && maps.covariances[0][v] > 0)
          << one.what << ", voxel " << v;
    for (const double share : fit.shares) EXPECT_TRUE(share > 0 && share <= 1) << one.what;
    double in_middle = 0;
    for (std::size_t v = 0; v < ball().size(); ++v)
      if ((mm_in_ball(v) - middle).norm() < 1.5) in_middle = double(maps.estimates[0][v]);
    EXPECT_TRUE(in_middle >= one.lowest && in_middle <= one.highest)
        << one.what << ": " << in_middle;
    const double prior = assumptions.effect_sd * assumptions.effect_sd;
    EXPECT_EQ(mean_of(maps.covariances[0]) > 0.65 * prior, one.unknown)
        << one.what << ": " << mean_of(maps.covariances[0]);
  }
}

/// Of studies drawn from the model, with few of their maxima listed and with all.
TEST(PeakFit, FindsTheEffectsThatStudiesWereDrawnFrom) {
  for (const double share : {0.3, 1.0}) {
    const std::vector<ListingStudy> studies = drawn_studies(40, share);
    const PeakFit fit = fit_peaks(studies, ball(), {});
    const PeakEstimates maps = estimates_of(fit, ball());
    double bias = 0, high_bias = 0, covered = 0, mean_share = 0;
    std::size_t high = 0;
    for (std::size_t v = 0; v < ball().size(); ++v) {
      const double off = double(maps.estimates[0][v]) - bump(mm_in_ball(v));
      bias += off;
      if (bump(mm_in_ball(v)) > 0.6) high_bias += off, ++high;
      if (std::abs(off) < 1.96 * std::sqrt(double(maps.covariances[0][v]))) covered += 1;
    }
    for (const double one : fit.shares) mean_share += one / double(fit.shares.size());
    // The fewer maxima are listed, the less is known between the places where effects are high.
    EXPECT_NEAR(bias / double(ball().size()), 0, share < 1 ? 0.1 : 0.05) << share;
    EXPECT_NEAR(high_bias / double(high), 0, 0.1) << share;
    EXPECT_GT(covered / double(ball().size()), 0.85) << share;
    EXPECT_NEAR(mean_share / share, 1, 0.3) << share;
  }
}

TEST(PeakFit, IsTheSameWithAnyNumberOfThreads) {
  const std::vector<ListingStudy> studies = drawn_studies(12, 0.5);
  std::vector<PeakEstimates> maps;
  std::vector<ChosenAssumptions> chosen;
  for (const int threads : {1, 2}) {
    omp_set_num_threads(threads);
    chosen.push_back(choose_assumptions(studies, ball(), std::nullopt));
    maps.push_back(estimates_of(fit_peaks(studies, ball(), {}), ball()));
  }
  EXPECT_EQ(maps[0].estimates, maps[1].estimates);
  EXPECT_EQ(maps[0].covariances, maps[1].covariances);
  EXPECT_TRUE(chosen[0].by_prediction);
  EXPECT_EQ(chosen[0].assumptions, chosen[1].assumptions);
}

/// A meta-analysis of studies with those peaks, and maps of the images of those with none.
struct Joint {
  MetaAnalysis meta;
  StudyMaps maps{0};

  void add_peaks(int n, const std::vector<ListedPeak>& listed) {
    add(n, false);
    for (const ListedPeak& peak : listed)
      meta.members.back().peaks.push_back({peak.mm, peak.g, peak.height_known});
    maps.g.emplace_back(), maps.var.emplace_back();
  }
  void add_image(int n, float g) {
    add(n, true);
    maps.g.emplace_back(ball().size(), g);
    maps.var.emplace_back(ball().size(), float(variance_of_g({n, 0}).at(double(g))));
  }
  void add(int n, bool has_image) {
    meta.mask = ball();
    Member member;
    member.study.sample = {n, 0};
    member.has_image = has_image;
    meta.members.push_back(member);
  }
};

/// The precisions add up, and the estimates with them as weights.
TEST(JointEstimate, WeighsPeaksAndImagesByWhatTheyKnow) {
  Joint all;
  std::vector<ListingStudy> listing;
  for (const ListingStudy& study : drawn_studies(3, 0.5)) {
    const int n = int(std::round(1 / study.variance.base));
    all.add_peaks(n, study.peaks);
    listing.push_back(study);
  }
  all.add_image(20, 0.2F), all.add_image(30, 0.5F), all.add_image(14, 0.8F);
  const JointEstimate joint = estimate_jointly(all.meta, make_design({}, 6), all.maps);
  EXPECT_EQ(joint.facts.images, 3);
  EXPECT_EQ(joint.facts.studies_with_peaks, 3);
  EXPECT_EQ(joint.facts.thresholds_assumed, 3);
  const PeakAssumptions& assumptions = joint.facts.chosen.assumptions;
  const PeakEstimates peaks = estimates_of(fit_peaks(listing, ball(), assumptions), ball());
  const double doubt = joint.facts.listing_doubt * joint.facts.listing_doubt;
  EXPECT_GT(doubt, 0);
  for (std::size_t v = 0; v < ball().size(); v += 501) {
    double weight = 1 / (double(peaks.covariances[0][v]) + doubt);
    double sum = weight * double(peaks.estimates[0][v]);
    const double g = double(joint.g[0][v]);
    for (std::size_t s = 3; s < 6; ++s) {
      const double var = variance_of_g(all.meta.members[s].study.sample).at(g) + assumptions.tau2;
      weight += 1 / var;
      sum += double(all.maps.g[s][v]) / var;
    }
    EXPECT_NEAR(g, sum / weight, 0.003);
    EXPECT_NEAR(double(joint.var[0][v]) * weight, 1, 0.01);
    EXPECT_TRUE(joint.info[0][v] > 0.4F && joint.info[0][v] <= 1) << joint.info[0][v];
  }
}

TEST(JointEstimate, FindsTheSlopeOfACovariate) {
  std::mt19937 random(21);
  Joint drawn;
  Term age{"age", {}};
  for (int s = 0; s < 60; ++s) {
    age.values.push_back(30 + s % 3 * 20);
    const double years = (age.values.back() - 50) / 20;
    const auto effect = [&](const Vector3d& mm) { return bump(mm) * (1 + 0.5 * years); };
    drawn.add_peaks(15 + s % 7 * 4, drawn_peaks(15 + s % 7 * 4, 0.7, effect, random));
  }
  const JointEstimate joint =
      estimate_jointly(drawn.meta, make_design(std::vector{age}, 60), drawn.maps);
  double slope_off = 0, intercept_off = 0, covered = 0;
  std::size_t high = 0;
  for (std::size_t v = 0; v < ball().size(); ++v) {
    const double true_slope = bump(mm_in_ball(v)) * 0.5 / 20;
    const double off = double(joint.g[1][v]) - true_slope;
    if (std::abs(off) < 1.96 * std::sqrt(double(joint.var[1][v]))) covered += 1;
    if (bump(mm_in_ball(v)) < 0.6) continue;
    ++high;
    slope_off += off / true_slope;
    intercept_off += double(joint.g[0][v]) + 50 * double(joint.g[1][v]) - bump(mm_in_ball(v));
  }
  EXPECT_NEAR(slope_off / double(high), 0, 0.3);
  EXPECT_NEAR(intercept_off / double(high), 0, 0.1);
  EXPECT_GT(covered / double(ball().size()), 0.85);
}

}  // namespace
