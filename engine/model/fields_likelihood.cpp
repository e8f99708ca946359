#include "engine/model/fields_likelihood.h"

#include <algorithm>
#include <cmath>

#include "engine/base/parallel.h"
#include "engine/model/small_symmetric.h"

namespace kvo::model {

Fields in_cells(const PeakFit& fit, const Fields& noise) {
  Fields cells;
  for (std::size_t j = 0; j < noise.size(); ++j)
    cells.push_back(fit.sd(j) * fit.prior.at_cells(noise[j]));
  return cells;
}

Eigen::VectorXd effect_of(const Fields& cells, const Eigen::VectorXd& row) {
  Eigen::VectorXd effect = row[0] * cells[0];
  for (std::size_t j = 1; j < cells.size(); ++j) effect += row[Eigen::Index(j)] * cells[j];
  return effect;
}

double effect_at(const PeakFit& fit, const FieldPlace& place, const Fields& noise,
                 const Eigen::VectorXd& row) {
  double effect = 0;
  for (std::size_t j = 0; j < noise.size(); ++j)
    effect += row[Eigen::Index(j)] * fit.sd(j) * FieldPrior::at(place, noise[j]);
  return effect;
}

bool lies_in(const ListedPeak& peak, const Eigen::VectorXd& volumes) {
  const std::size_t cell = FieldPrior::cell_at(peak.mm);
  return cell != FieldPrior::cells() && volumes[Eigen::Index(cell)] > 0;
}

namespace {

/// Realms with a smaller relative change are kept, because each new one needs new tables.
constexpr double realm_tolerance = 1e-3;

}  // namespace

std::vector<double> volumes_by_effect(const Eigen::VectorXd& effect,
                                      const Eigen::VectorXd& volumes) {
  std::vector<double> by_effect(LikelihoodTable::effects);
  for (Eigen::Index c = 0; c < effect.size(); ++c)
    if (volumes[c] > 0) LikelihoodTable::add_volume(effect[c], volumes[c], by_effect);
  return by_effect;
}

FieldsLikelihood::FieldsLikelihood(std::span<const ListingStudy> studies, const Mask& mask,
                                   const PeakFit& fit)
    : studies_(studies), fit_(fit), volumes_(FieldPrior::volumes(mask)) {
  const PeakDensity density(fit.assumptions.smoothness);
  for (std::size_t s = 0; s < studies.size(); ++s) {
    likelihoods_.emplace_back(studies[s], fit.assumptions.tau2, density);
    std::size_t listed = 0;
    for (const ListedPeak& peak : studies[s].peaks) {
      if (!lies_in(peak, volumes_)) continue;
      peaks_.push_back({s, fit.prior.place(peak.mm), &peak});
      ++listed;
    }
    listed_.push_back(listed);
    const auto group = std::find_if(groups_.begin(), groups_.end(), [&](const Group& other) {
      return other.row == studies[s].row;
    });
    if (group != groups_.end())
      group->studies.push_back(s);
    else
      groups_.push_back({studies[s].row, {s}, {}});
  }
}

void FieldsLikelihood::find_realms(const Fields& cells, bool keeps_shares,
                                   std::vector<double>& shares, std::vector<double>& realms) {
  for (const Group& group : groups_) {
    const std::vector<double> volumes = volumes_by_effect(effect_of(cells, group.row), volumes_);
    in_parallel(group.studies.size(), [&](std::size_t i, std::size_t) {
      const std::size_t s = group.studies[i];
      const double all = likelihoods_[s].listed(volumes, 0);
      if (!keeps_shares) shares[s] = std::min(1.0, std::max(double(listed_[s]), no_peaks) / all);
      realms[s] = likelihoods_[s].realm_of(volumes, shares[s] * all);
    });
  }
  take_realms(realms);
}

void FieldsLikelihood::take_realms(std::span<const double> realms) {
  in_parallel(realms.size(), [&](std::size_t s, std::size_t) {
    if (std::abs(realms[s] - likelihoods_[s].realm()) > realm_tolerance * realms[s])
      likelihoods_[s].take_realm(realms[s]);
  });
  for (Group& group : groups_) {
    group.silence = {};
    for (const std::size_t s : group.studies) group.silence.add(likelihoods_[s].silence);
  }
}

double FieldsLikelihood::value(const Fields& noise, const Fields& cells) const {
  double sum = 0;
  for (const Group& group : groups_) {
    const Eigen::VectorXd effect = effect_of(cells, group.row);
    for (Eigen::Index c = 0; c < effect.size(); ++c)
      if (volumes_[c] > 0) sum -= volumes_[c] * group.silence.at(effect[c]).value;
  }
  for (const Placed& placed : peaks_) sum += of_peak(placed, noise).value;
  return sum;
}

void FieldsLikelihood::derivatives(const Fields& noise, const Fields& cells, Fields& slope,
                                   Fields& information) const {
  const std::size_t p = noise.size();
  const Eigen::Index n = volumes_.size();
  Fields by_cell(p, Eigen::VectorXd::Zero(n));
  information.assign(triangle_size(p), Eigen::VectorXd::Zero(n));
  for (const Group& group : groups_) {
    const Eigen::VectorXd effect = effect_of(cells, group.row);
    for (Eigen::Index c = 0; c < n; ++c) {
      if (volumes_[c] == 0) continue;
      const LikelihoodTable::Value at = group.silence.at(effect[c]);
      for (std::size_t j = 0, m = 0; j < p; ++j) {
        by_cell[j][c] -= volumes_[c] * at.slope * group.row[Eigen::Index(j)];
        for (std::size_t k = 0; k <= j; ++k, ++m)
          information[m][c] += volumes_[c] * at.information * group.row[Eigen::Index(j)] *
                               group.row[Eigen::Index(k)];
      }
    }
  }
  slope.clear();
  for (const Eigen::VectorXd& field : by_cell) slope.push_back(fit_.prior.to_noise(field));
  for (const Placed& placed : peaks_) {
    const double by_effect = of_peak(placed, noise).slope;
    for (std::size_t j = 0; j < p; ++j)
      FieldPrior::add_to_noise(placed.place,
                               by_effect * studies_[placed.study].row[Eigen::Index(j)], slope[j]);
  }
  for (std::size_t j = 0; j < p; ++j) slope[j] *= fit_.sd(j);
}

StudyLikelihood::Value FieldsLikelihood::of_peak(const Placed& placed, const Fields& noise) const {
  const double effect = effect_at(fit_, placed.place, noise, studies_[placed.study].row);
  return likelihoods_[placed.study].of_peak(*placed.peak, effect);
}

}  // namespace kvo::model
