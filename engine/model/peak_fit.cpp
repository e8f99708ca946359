#include "engine/model/peak_fit.h"

#include <algorithm>
#include <cmath>
#include <random>

#include "engine/base/parallel.h"
#include "engine/model/fields_likelihood.h"
#include "engine/model/peak_likelihood.h"
#include "engine/model/small_symmetric.h"

namespace kvo::model {

namespace {

constexpr int most_solver_steps = 25, draws = 64;
/// The shortest fraction of a Newton step that is tried: far from the mode full steps can be much
/// too long.
constexpr double shortest_step = 1e-6;
/// When a search ends: after this many iterations, or once the effects move less than this in one.
struct Effort {
  int rounds;
  double still;
};
constexpr Effort thorough{40, 0.001}, rough{8, 0.01}, of_profile{8, 0.0002};

using Vector = Eigen::VectorXd;

double dot(const Fields& a, const Fields& b) {
  double sum = 0;
  for (std::size_t j = 0; j < a.size(); ++j) sum += a[j].dot(b[j]);
  return sum;
}

/// Solves (1 + sd K' W K sd) x = b by conjugate gradients, W the information of the cells.
Fields solved(const PeakFit& fit, const Fields& information, const Fields& b, double tolerance) {
  const std::size_t p = b.size();
  Fields x(p, Vector::Zero(b[0].size())), residual = b, direction = b;
  double square = dot(residual, residual);
  const double enough = tolerance * tolerance * square;
  for (int step = 0; step < most_solver_steps && square > enough; ++step) {
    const Fields cells = in_cells(fit, direction);
    Fields weighted(p, Vector::Zero(b[0].size()));
    for (std::size_t j = 0, m = 0; j < p; ++j)
      for (std::size_t k = 0; k <= j; ++k, ++m) {
        weighted[j].array() += information[m].array() * cells[k].array();
        if (k < j) weighted[k].array() += information[m].array() * cells[j].array();
      }
    for (std::size_t j = 0; j < p; ++j)
      weighted[j] = direction[j] + fit.sd(j) * fit.prior.to_noise(weighted[j]);
    const double length = square / dot(direction, weighted);
    for (std::size_t j = 0; j < p; ++j) {
      x[j] += length * direction[j];
      residual[j] -= length * weighted[j];
    }
    const double next = dot(residual, residual);
    for (std::size_t j = 0; j < p; ++j) direction[j] = residual[j] + next / square * direction[j];
    square = next;
  }
  return x;
}

/// How far the coefficients have moved, as the root of the mean square over the mask.
double moved_by(const Fields& from, const Fields& to, const Vector& volumes) {
  double sum = 0;
  for (std::size_t j = 0; j < from.size(); ++j) sum += volumes.dot((to[j] - from[j]).cwiseAbs2());
  return std::sqrt(sum / volumes.sum());
}

/// A draw of the fields' noise from the normal distribution that approximates the fit's posterior.
Fields draw(const PeakFit& fit, std::uint64_t number) {
  const std::size_t p = fit.noise.size();
  const Eigen::Index n = fit.noise[0].size();
  std::mt19937_64 random(number);
  // Random signs have variance 1 like standard normal values, and sums of many are close to normal.
  const auto signs = [&] {
    Vector values(n);
    std::uint64_t bits = 0;
    for (Eigen::Index c = 0; c < n; ++c) {
      if (c % 64 == 0) bits = random();
      values[c] = (bits >> (c % 64) & 1) != 0 ? 1 : -1;
    }
    return values;
  };
  Fields raw, root(p, Vector::Zero(n)), b;
  for (std::size_t j = 0; j < p; ++j) raw.push_back(signs());
  for (Eigen::Index c = 0; c < n; ++c) {
    if (fit.information[0][c] == 0) continue;
    SmallSymmetric W{};
    for (std::size_t m = 0; m < triangle_size(p); ++m) W[m] = fit.information[m][c];
    const SmallSymmetric L = cholesky_of(W, p);
    for (std::size_t j = 0; j < p; ++j)
      for (std::size_t k = 0; k <= j; ++k) root[j][c] += L[in_triangle(j, k)] * raw[k][c];
  }
  for (std::size_t j = 0; j < p; ++j)
    b.push_back(fit.sd(j) * fit.prior.to_noise(root[j]) + signs());
  return solved(fit, fit.information, b, 0.02);
}

/// A search for the mode of the posterior, or of the posterior times exp(tilt'z), with z the noise
/// of the first coefficient.
struct Search {
  PeakFit& fit;
  FieldsLikelihood& likelihood;
  const Vector* tilt = nullptr;
  Fields cells = in_cells(fit, fit.noise);

  [[nodiscard]] double log_posterior(const Fields& noise, const Fields& in_cells) const {
    return likelihood.value(noise, in_cells) - dot(noise, noise) / 2;
  }
  [[nodiscard]] double target(const Fields& noise, const Fields& in_cells) const {
    return log_posterior(noise, in_cells) + (tilt != nullptr ? tilt->dot(noise[0]) : 0);
  }
  /// A Newton step, halved until it leads uphill. Returns how far the effects have moved.
  double step() {
    const std::size_t p = fit.noise.size();
    Fields b;
    likelihood.derivatives(fit.noise, cells, b, fit.information);
    for (std::size_t j = 0; j < p; ++j) b[j] -= fit.noise[j];
    if (tilt != nullptr) b[0] += *tilt;
    const Fields step = solved(fit, fit.information, b, 0.1);
    const double before = target(fit.noise, cells);
    for (double length = 1; length > shortest_step; length /= 2) {
      Fields noise = fit.noise;
      for (std::size_t j = 0; j < p; ++j) noise[j] += length * step[j];
      Fields next = in_cells(fit, noise);
      if (target(noise, next) < before) continue;
      const double moved = moved_by(cells, next, likelihood.volumes());
      fit.noise = std::move(noise);
      cells = std::move(next);
      return moved;
    }
    return 0;
  }
};

PeakFit fitted(std::span<const ListingStudy> studies, const Mask& mask,
               const PeakAssumptions& assumptions, const FitStart& start, const Effort& effort) {
  PeakFit fit{assumptions, FieldPrior(assumptions.width), {}, {}, {}, {}, 0};
  const auto p = std::size_t(studies[0].row.size());
  fit.noise.assign(p, Vector::Zero(Eigen::Index(FieldPrior::cells())));
  if (start.near != nullptr) fit.noise = start.near->noise;
  fit.shares.assign(start.shares.begin(), start.shares.end());
  fit.shares.resize(studies.size());
  fit.realms.resize(studies.size());
  std::size_t peaks = 0, unknown = 0;
  for (const ListingStudy& study : studies)
    for (const ListedPeak& peak : study.peaks) ++peaks, unknown += peak.height_known ? 0 : 1;
  if (peaks > 0) fit.unknown_heights = double(unknown) / double(peaks);
  FieldsLikelihood likelihood(studies, mask, fit);
  Search search{fit, likelihood};
  for (int round = 0; round < effort.rounds; ++round) {
    likelihood.find_realms(search.cells, !start.shares.empty(), fit.shares, fit.realms);
    if (search.step() < effort.still) break;
  }
  Fields unused;
  likelihood.derivatives(fit.noise, search.cells, unused, fit.information);
  return fit;
}

/// The weights of the first coefficient's noise in its mean over the region.
Vector weights_of(const PeakFit& fit, const Mask& region) {
  return fit.sd(0) * fit.prior.mean_weights(region);
}

/// The covariance of the noise with that mean.
Fields covariance_with(const PeakFit& fit, const Vector& weights) {
  Fields b(fit.noise.size(), Vector::Zero(weights.size()));
  b[0] = weights;
  return solved(fit, fit.information, b, 0.001);
}

}  // namespace

PeakFit fit_peaks(std::span<const ListingStudy> studies, const Mask& mask,
                  const PeakAssumptions& assumptions, const FitStart& start) {
  return fitted(studies, mask, assumptions, start, thorough);
}

PeakFit fit_roughly(std::span<const ListingStudy> studies, const Mask& mask,
                    const PeakAssumptions& assumptions, const PeakFit* start) {
  return fitted(studies, mask, assumptions, {start}, rough);
}

RegionMean region_mean(const PeakFit& fit, const Mask& region) {
  const Vector weights = weights_of(fit, region);
  return {weights.dot(fit.noise[0]), weights.dot(covariance_with(fit, weights)[0])};
}

std::vector<ProfilePoint> region_profile(const PeakFit& fit, std::span<const ListingStudy> studies,
                                         const Mask& mask, const Mask& region,
                                         std::span<const double> standard_errors) {
  const Vector weights = weights_of(fit, region);
  const Fields covariance = covariance_with(fit, weights);
  const double se = std::sqrt(weights.dot(covariance[0]));
  std::vector<ProfilePoint> points(standard_errors.size() + 1);
  in_parallel(points.size(), [&](std::size_t i, std::size_t) {
    // The mode of a tilted posterior is where the posterior itself is highest for the mean found
    // there; if the posterior were normal, this tilt would move the mean by exactly that many
    // standard errors.
    const double tilted = i == 0 ? 0 : standard_errors[i - 1] / se;
    PeakFit at = fit;
    for (std::size_t j = 0; j < at.noise.size(); ++j) at.noise[j] += tilted * covariance[j];
    FieldsLikelihood likelihood(studies, mask, at);
    likelihood.take_realms(fit.realms);
    const Vector tilt = tilted * weights;
    Search search{at, likelihood, &tilt};
    for (int round = 0; round < of_profile.rounds; ++round)
      if (search.step() < of_profile.still) break;
    points[i] = {weights.dot(at.noise[0]), search.log_posterior(at.noise, search.cells)};
  });
  const double first = points[0].log_density;
  for (ProfilePoint& point : points) point.log_density -= first;
  return points;
}

Foretold foretold(const PeakFit& fit, std::span<const ListingStudy> studies, const Mask& mask) {
  const PeakDensity density(fit.assumptions.smoothness);
  const Vector volumes = FieldPrior::volumes(mask);
  const Fields cells = in_cells(fit, fit.noise);
  Foretold result;
  for (const ListingStudy& study : studies) {
    StudyLikelihood likelihood(study, fit.assumptions.tau2, density);
    const auto listed =
        double(std::count_if(study.peaks.begin(), study.peaks.end(),
                             [&](const ListedPeak& peak) { return lies_in(peak, volumes); }));
    const std::vector<double> by_effect = volumes_by_effect(effect_of(cells, study.row), volumes);
    const double realm = likelihood.realm_of(by_effect, std::max(listed, no_peaks));
    likelihood.take_realm(realm);
    const double expected = likelihood.listed(by_effect, realm);
    for (const ListedPeak& peak : study.peaks) {
      if (!lies_in(peak, volumes)) continue;
      const FieldPlace place = fit.prior.place(peak.mm);
      const double at_peak = effect_at(fit, place, fit.noise, study.row);
      result.sum += likelihood.log_listed(peak, at_peak) - std::log(expected);
      ++result.peaks;
    }
  }
  return result;
}

PeakEstimates estimates_of(const PeakFit& fit, const Mask& mask) {
  const std::size_t p = fit.noise.size();
  PeakEstimates maps;
  for (std::size_t j = 0; j < p; ++j) {
    std::vector<float> map = fit.prior.in_mask(fit.noise[j], mask);
    for (float& value : map) value *= float(fit.sd(j));
    maps.estimates.push_back(std::move(map));
  }
  maps.covariances.assign(triangle_size(p), std::vector<float>(mask.size()));
  const auto threads = std::size_t(omp_get_max_threads());
  for (std::size_t first = 0; first < std::size_t(draws); first += threads) {
    const std::size_t count = std::min(threads, std::size_t(draws) - first);
    std::vector<std::vector<std::vector<float>>> drawn(count);
    in_parallel(count, [&](std::size_t i, std::size_t) {
      const Fields noise = draw(fit, first + i);
      for (std::size_t j = 0; j < p; ++j)
        drawn[i].push_back(fit.prior.in_mask(fit.sd(j) * noise[j], mask));
    });
    // Summed in a fixed order, so that the result does not depend on the number of threads.
    for (const auto& fields : drawn)
      for (std::size_t j = 0, m = 0; j < p; ++j)
        for (std::size_t k = 0; k <= j; ++k, ++m)
          for (std::size_t v = 0; v < mask.size(); ++v)
            maps.covariances[m][v] += fields[j][v] * fields[k][v] / float(draws);
  }
  return maps;
}

}  // namespace kvo::model
