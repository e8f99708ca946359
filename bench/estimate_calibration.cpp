// Usage: estimate_calibration BRAIN_MASK GRAY_MATTER_MASK REPETITIONS TABLE SLICE
// Simulates meta-analyses whose studies list their peaks by different rules and writes, by bins of
// the true effect in gray matter, how far estimates are off and how often their 95 % intervals have
// the truth: sums over voxels, which script/estimate_calibration.py makes tables of. And a slice of
// one of them, for a picture.

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <numbers>
#include <string>
#include <utility>
#include <vector>

#include "bench/simulated_studies.h"
#include "engine/base/parallel.h"
#include "engine/images/gaussian.h"
#include "engine/maps/effect_maps.h"
#include "engine/model/interval.h"
#include "engine/model/joint_estimate.h"
#include "engine/model/peak_likelihood.h"
#include "engine/model/pooling.h"

using namespace kvo::model;
using namespace kvo::simulated;

namespace {

constexpr std::size_t studies_of_each = 20;
/// Of the voxels of the brain, every so many are looked at.
constexpr std::size_t every = 7;

constexpr std::array truths{
    Truth{"15 mm, tau 0.27, noise 10 mm", 15, 0.27, 10, 0.19, 0.29},
    Truth{"10 mm, tau 0.2, noise 8 mm", 10, 0.2, 8, 0.19, 0.29},
    Truth{"24 mm, tau 0.3, noise 10 mm", 24, 0.3, 10, 0.19, 0.29},
    Truth{"18 mm, tau 0.1, noise 9 mm", 18, 0.1, 9, 0.19, 0.29},
};
constexpr Truth nothing{"no effect, tau 0.2, noise 9 mm", 15, 0.2, 9, 0, 0};

constexpr std::size_t all = 10000;
constexpr std::array rules{
    ListingRule{"four a cluster of 80 voxels", 0.001, 4, 8, 80},
    ListingRule{"three a cluster", 0.001, 3, 8, 0},
    ListingRule{"one a cluster", 0.001, 1, 8, 0},
    ListingRule{"all, p < .00001, 8 mm", 0.00001, all, 8, 0},
    ListingRule{"all, p < .001, 16 mm", 0.001, all, 16, 0},
    ListingRule{"all, p < .001, 8 mm", 0.001, all, 8, 0},
};

/// What is different from studies that all list their positive peaks with heights.
enum class Setting { plain, negative_too, heights_unknown, half_images, no_effect };
constexpr std::array settings{"peaks with heights", "negative peaks listed too", "heights unknown",
                              "half of the studies are images", "no effect anywhere"};

/// Estimates with their intervals in the voxels of the brain; every so many of them count.
struct Estimates {
  std::vector<double> g, low, high;
};

MetaAnalysis meta_of(const SimulatedStudies& simulated, const Mask& mask, ListingRule rule,
                     Setting setting) {
  rule.both_signs = setting == Setting::negative_too || setting == Setting::no_effect;
  MetaAnalysis meta;
  meta.mask = mask;
  meta.members.resize(simulated.studies.size());
  kvo::base::in_parallel(meta.members.size(), [&](std::size_t s, std::size_t) {
    Member& member = meta.members[s];
    member.study.sample = simulated.studies[s].sample;
    member.study.threshold_p = rule.threshold_p;
    member.has_image = setting == Setting::half_images && s % 2 == 0;
    if (member.has_image) return;
    member.peaks = listed_peaks(simulated.studies[s], mask, rule);
    if (setting == Setting::heights_unknown)
      for (Peak& peak : member.peaks) peak.height_known = false;
  });
  return meta;
}

StudyMaps maps_of_images(const SimulatedStudies& simulated, const MetaAnalysis& meta) {
  StudyMaps maps(meta.members.size());
  for (std::size_t s = 0; s < meta.members.size(); ++s) {
    if (!meta.members[s].has_image) continue;
    const VarianceOfG variance = variance_of_g(meta.members[s].study.sample);
    for (const std::uint32_t v : meta.mask.grid_index) {
      const double g = double(simulated.studies[s].g[v]);
      maps.g[s].push_back(float(g));
      maps.var[s].push_back(float(variance.at(g)));
    }
  }
  return maps;
}

Estimates with_intervals(const Map& g, const Map& var) {
  Estimates made;
  for (std::size_t v = 0; v < g.size(); ++v) {
    const double half = interval_z * std::sqrt(double(var[v]));
    made.g.push_back(double(g[v]));
    made.low.push_back(double(g[v]) - half);
    made.high.push_back(double(g[v]) + half);
  }
  return made;
}

Estimates joint(const SimulatedStudies& simulated, const MetaAnalysis& meta) {
  const JointEstimate estimate =
      estimate_jointly(meta, make_design({}, meta.members.size()), maps_of_images(simulated, meta));
  return with_intervals(estimate.g[0], estimate.var[0]);
}

/// Kernels around the peaks of each study, 0 elsewhere, pooled as if they were images.
Estimates silence_as_zero(const MetaAnalysis& meta) {
  PpRecord record;
  record.fwhm = 20;
  const EffectMaps effects(record, meta.mask, {});
  std::vector<Map> g(meta.members.size()), var(meta.members.size());
  std::vector<const float*> g_of, var_of;
  for (std::size_t s = 0; s < meta.members.size(); ++s) {
    g[s] = effects.map_of(effects.around(meta.members[s].peaks));
    const VarianceOfG variance = variance_of_g(meta.members[s].study.sample);
    for (const float value : g[s]) var[s].push_back(float(variance.at(double(value))));
    g_of.push_back(g[s].data());
    var_of.push_back(var[s].data());
  }
  Map z(meta.mask.size()), mean(meta.mask.size()), variance(meta.mask.size());
  pool(g_of, var_of, meta.mask.size(), {.z = z.data(), .g = mean.data(), .var = variance.data()});
  return with_intervals(mean, variance);
}

/// The likelihood of the peaks in one place after another: those near, with weights that fall off
/// with their distance (12 mm FWHM), the between-study variance fixed at 0.07, and the prior N(0,
/// 0.5²). With all maxima taken to be listed, or as large a share of each study's as it has peaks.
class LocalLikelihood {
 public:
  LocalLikelihood(const MetaAnalysis& meta, bool all_listed)
      : meta_(meta), all_listed_(all_listed), density_(8) {
    for (const Member& member : meta.members)
      likelihoods_.emplace_back(
          ListingStudy{variance_of_g(member.study.sample),
                       hedges_g(threshold_of(member.study).t, member.study.sample),
                       {},
                       {}},
          0.07, density_);
    for (std::size_t s = 0; s < meta.members.size(); ++s)
      for (const Peak& peak : meta.members[s].peaks) peaks_.push_back(curve_of(s, peak));
    shares_.assign(meta.members.size(), 1);
  }

  Estimates estimate() {
    const std::size_t count = (meta_.mask.size() + every - 1) / every;
    Estimates made;
    made.g.assign(meta_.mask.size(), 0.1), made.low = made.high = made.g;
    std::vector<std::vector<double>> curves(count);
    kvo::base::in_parallel(count, [&](std::size_t p, std::size_t) { curves[p] = near(p * every); });
    for (int round = 0; round < 8; ++round) {
      const std::vector<double> silence = expected_of(made);
      kvo::base::in_parallel(
          count, [&](std::size_t p, std::size_t) { leave(curves[p], silence, p * every, made); });
    }
    return made;
  }

 private:
  static constexpr std::size_t effects = 121;
  static double effect(std::size_t q) { return -1 + 0.03 * double(q); }

  struct Curve {
    Eigen::Vector3d mm;
    std::vector<double> values;
  };
  [[nodiscard]] Curve curve_of(std::size_t s, const Peak& peak) const {
    Curve curve{peak.mm, {}};
    for (std::size_t q = 0; q < effects; ++q)
      curve.values.push_back(
          likelihoods_[s].of_peak({peak.mm, peak.g, peak.height_known}, effect(q)).value);
    return curve;
  }

  /// The prior and the peaks near a voxel.
  [[nodiscard]] std::vector<double> near(std::size_t v) const {
    std::vector<double> sum;
    for (std::size_t q = 0; q < effects; ++q) sum.push_back(-2 * effect(q) * effect(q));
    const Eigen::Vector3d mm = mni_grid().mm(meta_.mask.voxel(v));
    for (const Curve& curve : peaks_) {
      const double distance = (curve.mm - mm).norm();
      if (distance > 4 * sigma_) continue;
      const double weight = gaussian(distance, sigma_);
      for (std::size_t q = 0; q < effects; ++q) sum[q] += weight * curve.values[q];
    }
    return sum;
  }

  /// What studies are expected to list in the volume of the kernel, by the effect.
  std::vector<double> expected_of(const Estimates& now) {
    const double kernel = std::pow(2 * std::numbers::pi * sigma_ * sigma_, 1.5);
    std::vector<double> silence(effects);
    for (std::size_t s = 0; s < likelihoods_.size(); ++s) {
      double expected = 0;
      for (std::size_t v = 0; v < now.g.size(); v += every)
        expected += voxel_volume * double(every) * likelihoods_[s].expected.at(now.g[v]).value;
      const double listed = std::max(double(meta_.members[s].peaks.size()), 0.5);
      if (!all_listed_) shares_[s] = std::min(1.0, listed / expected);
      for (std::size_t q = 0; q < effects; ++q)
        silence[q] += shares_[s] * kernel * likelihoods_[s].expected.at(effect(q)).value;
    }
    return silence;
  }

  static void leave(const std::vector<double>& curve, const std::vector<double>& silence,
                    std::size_t v, Estimates& made) {
    std::vector<double> posterior(effects);
    double highest = -1e300, sum = 0, mean = 0;
    for (std::size_t q = 0; q < effects; ++q)
      highest = std::max(highest, posterior[q] = curve[q] - silence[q]);
    for (std::size_t q = 0; q < effects; ++q) {
      sum += posterior[q] = std::exp(posterior[q] - highest);
      mean += posterior[q] * effect(q);
    }
    made.g[v] = mean / sum;
    made.low[v] = effect(0), made.high[v] = effect(effects - 1);
    double below = 0;
    for (std::size_t q = 0; q < effects; ++q) {
      below += posterior[q] / sum;
      if (below < interval_tail) made.low[v] = effect(q);
      if (below < 1 - interval_tail) made.high[v] = effect(std::min(q + 1, effects - 1));
    }
  }

  const MetaAnalysis& meta_;
  bool all_listed_;
  PeakDensity density_;
  double sigma_ = sigma_of_fwhm(12);
  std::vector<StudyLikelihood> likelihoods_;
  std::vector<Curve> peaks_;
  std::vector<double> shares_;
};

/// The middles of the bins of true effects; the outer ones take what is beyond.
constexpr std::array bins{-0.2, 0.0, 0.2, 0.4, 0.6, 0.8, 1.0, 1.2};

struct Sums {
  double voxels = 0, bias = 0, covered = 0, width = 0;
};

class Table {
 public:
  Table(const Mask& brain, const Mask& gray) : brain_(brain), gray_(gray) {}

  void add(const std::string& what, const Map& truth, const Estimates& estimates) {
    auto& of_bins = row(what);
    for (std::size_t v = 0; v < brain_.size(); v += every) {
      if (!gray_.inside[brain_.grid_index[v]]) continue;
      const auto g = double(truth[brain_.grid_index[v]]);
      const double bin = std::clamp(std::floor((g + 0.3) / 0.2), 0.0, double(bins.size() - 1));
      Sums& sums = of_bins[std::size_t(bin)];
      sums.voxels += 1;
      sums.bias += estimates.g[v] - g;
      sums.covered += estimates.low[v] <= g && g <= estimates.high[v] ? 1 : 0;
      sums.width += estimates.high[v] - estimates.low[v];
    }
  }

  void write(const char* path) const {
    std::FILE* file = std::fopen(path, "w");
    if (file == nullptr) std::perror(path), std::exit(1);
    std::fputs("setting\ttruth\trule\tmethod\tbin\tvoxels\tbias\tcovered\twidth\n", file);
    for (const auto& [what, of_bins] : rows_)
      for (std::size_t b = 0; b < bins.size(); ++b)
        std::fprintf(file, "%s\t%g\t%.0f\t%.6g\t%.0f\t%.6g\n", what.c_str(), bins[b],
                     of_bins[b].voxels, of_bins[b].bias, of_bins[b].covered, of_bins[b].width);
    std::fclose(file);
  }

 private:
  using OfBins = std::array<Sums, bins.size()>;
  OfBins& row(const std::string& what) {
    for (auto& [other, of_bins] : rows_)
      if (other == what) return of_bins;
    return rows_.emplace_back(what, OfBins{}).second;
  }

  const Mask &brain_, &gray_;
  std::vector<std::pair<std::string, OfBins>> rows_;
};

void simulate_one(const Truth& truth, Setting setting, std::uint64_t seed, const Mask& brain,
                  Table& table) {
  const SimulatedStudies simulated = simulate(truth, studies_of_each, seed);
  for (const ListingRule& rule : rules) {
    const MetaAnalysis meta = meta_of(simulated, brain, rule, setting);
    const std::string what =
        std::string(settings[std::size_t(setting)]) + "\t" + truth.name + "\t" + rule.name + "\t";
    table.add(what + "joint", simulated.truth, joint(simulated, meta));
    if (setting != Setting::plain) continue;
    table.add(what + "silence as zero", simulated.truth, silence_as_zero(meta));
    table.add(what + "all listed", simulated.truth, LocalLikelihood(meta, true).estimate());
    table.add(what + "local", simulated.truth, LocalLikelihood(meta, false).estimate());
  }
}

/// Writes an axial slice of a meta-analysis: the true effect and two estimates, and the peaks that
/// are listed close to it.
void write_slice(const char* path, const Mask& brain) {
  constexpr double z = 10, close = 8;  // mm
  const SimulatedStudies simulated = simulate(truths[0], studies_of_each, 100);
  const MetaAnalysis meta = meta_of(simulated, brain, rules[1], Setting::plain);
  const Estimates naive = silence_as_zero(meta), made = joint(simulated, meta);
  std::FILE* file = std::fopen(path, "w");
  if (file == nullptr) std::perror(path), std::exit(1);
  std::fputs("what\tx\ty\ttrue\tnaive\testimate\n", file);
  for (std::size_t v = 0; v < brain.size(); ++v) {
    const Eigen::Vector3d mm = mni_grid().mm(brain.voxel(v));
    if (mm[2] == z)
      std::fprintf(file, "voxel\t%.0f\t%.0f\t%.3f\t%.3f\t%.3f\n", mm[0], mm[1],
                   double(simulated.truth[brain.grid_index[v]]), naive.g[v], made.g[v]);
  }
  for (const Member& member : meta.members)
    for (const Peak& peak : member.peaks)
      if (std::abs(peak.mm[2] - z) <= close)
        std::fprintf(file, "peak\t%.0f\t%.0f\n", peak.mm[0], peak.mm[1]);
  std::fclose(file);
}

}  // namespace

int main(int, char** argv) {
  const Mask brain = read_mask(argv[1]), gray = read_mask(argv[2]);
  const std::uint64_t repetitions = std::stoul(argv[3]);
  Table table(brain, gray);
  write_slice(argv[5], brain);
  for (std::uint64_t repetition = 0; repetition < repetitions; ++repetition) {
    const std::uint64_t seed = 100 * (repetition + 1);
    for (std::size_t t = 0; t < truths.size(); ++t)
      simulate_one(truths[t], Setting::plain, seed + t, brain, table);
    for (const Setting setting :
         {Setting::negative_too, Setting::heights_unknown, Setting::half_images})
      simulate_one(truths[repetition % truths.size()], setting, seed + 10 + std::size_t(setting),
                   brain, table);
    simulate_one(nothing, Setting::no_effect, seed + 20, brain, table);
    table.write(argv[4]);
  }
}
