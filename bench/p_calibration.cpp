// Fits random covariates to simulated studies that agree in places, and prints, as a table in
// Markdown, how often their p values are below levels: overall, and where studies converge.
//
// p_calibration GRAY_MATTER RUNS: among its lines are those of the engine's progress.

#include <array>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "bench/simulated_studies.h"
#include "engine/inference/exchange.h"
#include "engine/maps/effect_maps.h"

using namespace kvo::inference;
using namespace kvo::simulated;

namespace {

constexpr std::array levels{0.05, 0.005, 0.001};
/// A voxel is one of convergence from this share of studies on that report something around it.
constexpr double converging_share = 0.4;

/// What the studies' covariates are like.
enum class Covariates { normal, skewed, groups, two };
constexpr std::array covariate_names{"normal", "skewed", "two groups", "normal and two groups"};

struct Setting {
  std::size_t studies;
  bool images;
  Covariates covariates;
};

MetaAnalysis simulated_meta(const Setting& setting, const Mask& mask, std::uint64_t seed,
                            StudyMaps& maps) {
  const Truth truth{"regions", 16, 0.25, 8, 0.2, 0.35};
  const ListingRule rule{"three a cluster", 0.001, 3, 8, 10};
  const SimulatedStudies simulated = simulate(truth, setting.studies, seed);
  MetaAnalysis meta;
  meta.mask = mask;
  meta.record.fwhm = 20;
  meta.record.seed = seed;
  meta.record.randomizations = 500;
  const EffectMaps effects(meta.record, mask, {});
  for (std::size_t s = 0; s < simulated.studies.size(); ++s) {
    const SimulatedStudy& study = simulated.studies[s];
    Member member;
    member.study.name = "study" + std::to_string(s);
    member.study.sample = study.sample;
    member.has_image = setting.images;
    std::vector<float> g;
    if (setting.images) {
      for (const std::uint32_t index : mask.grid_index) g.push_back(study.g[index]);
    } else {
      member.peaks = listed_peaks(study, mask, rule);
      g = effects.map_of(effects.around_reaching(member.peaks));
    }
    maps.g.push_back(std::move(g));
    meta.members.push_back(std::move(member));
  }
  return meta;
}

std::vector<Term> random_terms(const Setting& setting, std::mt19937_64& random) {
  std::normal_distribution<double> normal;
  const auto values = [&](bool groups, bool skewed) {
    std::vector<double> list;
    for (std::size_t s = 0; s < setting.studies; ++s)
      list.push_back(groups ? double(s % 2) : skewed ? std::exp(normal(random)) : normal(random));
    if (groups) std::shuffle(list.begin(), list.end(), random);
    return list;
  };
  const Covariates kind = setting.covariates;
  std::vector<Term> terms{{"x", values(kind == Covariates::groups, kind == Covariates::skewed)}};
  if (kind == Covariates::two) terms.push_back({"y", values(true, false)});
  return terms;
}

struct Rates {
  std::array<double, levels.size()> all{}, converging{};
  std::array<double, 3> corrected{};  ///< by voxel, cluster and TFCE
  double tests = 0;
};

void add(const TestedMap& tested, const std::vector<bool>& reported,
         const std::vector<bool>& converging, Rates& rates) {
  for (const TailMaps& tail : tested.tails) {
    rates.tests += 1;
    for (std::size_t l = 0; l < levels.size(); ++l) {
      std::array<double, 2> below{}, voxels{};
      for (std::size_t v = 0; v < reported.size(); ++v) {
        const bool is_below = double(tail.front()[v]) < levels[l];
        const std::array<bool, 2> in{reported[v], converging[v]};
        for (std::size_t i = 0; i < 2; ++i)
          if (in[i]) below[i] += is_below ? 1 : 0, voxels[i] += 1;
      }
      rates.all[l] += below[0] / voxels[0];
      rates.converging[l] += below[1] / voxels[1];
    }
    for (std::size_t kind = 1; kind <= 3; ++kind)
      for (const float p : tail[kind])
        if (double(p) <= 0.05) {
          rates.corrected[kind - 1] += 1;
          break;
        }
  }
}

void print(const Setting& setting, const Rates& rates) {
  std::printf("| %zu | %s | %s |", setting.studies, setting.images ? "images" : "peaks",
              covariate_names[std::size_t(setting.covariates)]);
  for (const auto& of : {rates.all, rates.converging})
    for (const double sum : of) std::printf(" %.5f |", sum / rates.tests);
  for (const double sum : rates.corrected) std::printf(" %.3f |", sum / rates.tests);
  std::printf("\n");
  std::fflush(stdout);
}

void run(const Setting& setting, const Mask& mask, std::size_t runs) {
  Rates rates;
  // A new set of studies for each ten covariates.
  constexpr std::size_t covariates_each = 10;
  for (std::size_t first = 0; first < runs; first += covariates_each) {
    StudyMaps maps;
    MetaAnalysis meta = simulated_meta(setting, mask, 1000 + first, maps);
    std::vector<bool> reported(mask.size()), converging(mask.size());
    for (std::size_t v = 0; v < mask.size(); ++v) {
      std::size_t count = 0;
      for (const std::vector<float>& g : maps.g) count += g[v] != 0 ? 1 : 0;
      reported[v] = count > 0;
      converging[v] = double(count) >= converging_share * double(setting.studies);
    }
    for (std::size_t r = first; r < std::min(runs, first + covariates_each); ++r) {
      std::mt19937_64 random(r + 1);
      meta.record.seed = r + 1;
      const std::vector<Term> terms = random_terms(setting, random);
      const Design design = make_design(terms, setting.studies);
      add(tested_by_exchange({.meta = meta,
                              .design = design,
                              .coefficient = 1,
                              .name = terms[0].name,
                              .studies = maps,
                              .tau2 = 0.07}),
          reported, converging, rates);
    }
  }
  print(setting, rates);
}

/// Some slices of a mask are enough, and quicker.
Mask slices_of(const Mask& mask, std::size_t first, std::size_t last) {
  std::vector<bool> inside(mni_grid().voxels());
  for (std::size_t n = mask.slice_begin[first]; n < mask.slice_begin[last]; ++n)
    inside[mask.grid_index[n]] = true;
  return mask_of(inside);
}

}  // namespace

int main(int, char** argv) {
  const Mask mask = slices_of(read_mask(argv[1]), 34, 46);
  const std::size_t runs = std::stoul(argv[2]);
  std::printf(
      "| studies | of | covariates | p < .05 | p < .005 | p < .001 | converging: p < .05 | p < "
      ".005 "
      "| p < .001 | FWE | cluster | TFCE |\n|%s\n",
      " --- | --- | --- | --- | --- | --- | --- | --- | --- | --- | --- | --- |");
  for (const std::size_t studies : {12UL, 21UL})
    for (const Covariates covariates :
         {Covariates::normal, Covariates::skewed, Covariates::groups, Covariates::two})
      run({studies, false, covariates}, mask, runs);
  run({21, true, Covariates::two}, mask, runs);
}
