// How often p values are below levels where there is nothing to find, as tables in Markdown: of
// random covariates, fitted to simulated studies that agree in places, overall and where the
// studies converge; and of means of studies without effects.
//
// p_calibration SHARE RUNS [TABLE]: the folder of the installation's images; "terms" or "means", or
// else both. Among its lines are those of the engine's progress.

#include <array>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "bench/simulated_studies.h"
#include "engine/inference/exchange.h"
#include "engine/inference/relocation.h"
#include "engine/maps/effect_maps.h"

using namespace kvo::inference;
using namespace kvo::simulated;

namespace {

constexpr std::array levels{0.05, 0.005, 0.001};
constexpr double tau2 = 0.07;
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
    if (setting.images) {
      for (const std::uint32_t index : mask.grid_index) maps.g[s].push_back(study.g[index]);
    } else {
      member.peaks = listed_peaks(study, mask, rule);
      maps.of_peaks[s] = SparseMap(effects.map_of(effects.around_reaching(member.peaks)));
    }
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
        if (p <= 0.05F) {
          rates.corrected[kind - 1] += 1;
          break;
        }
  }
}

void print_shares(const std::array<double, levels.size()>& sums, double tests) {
  for (const double sum : sums) std::printf(" %.5f |", sum / tests);
}

void print_corrected(const Rates& rates) {
  for (const double sum : rates.corrected) std::printf(" %.3f |", sum / rates.tests);
  std::printf("\n");
  std::fflush(stdout);
}

void run(const Setting& setting, const Mask& mask, std::size_t runs) {
  Rates rates;
  // A new set of studies for each ten covariates.
  constexpr std::size_t covariates_each = 10;
  for (std::size_t first = 0; first < runs; first += covariates_each) {
    StudyMaps maps(setting.studies);
    MetaAnalysis meta = simulated_meta(setting, mask, 1000 + first, maps);
    std::vector<bool> reported(mask.size()), converging(mask.size());
    std::vector<std::size_t> counts(mask.size());
    std::vector<float> g(mask.size());
    for (std::size_t s = 0; s < setting.studies; ++s) {
      if (!maps.copy_effects(s, 0, g.size(), g.data())) continue;
      for (std::size_t v = 0; v < g.size(); ++v) counts[v] += g[v] != 0 ? 1 : 0;
    }
    for (std::size_t v = 0; v < mask.size(); ++v) {
      reported[v] = counts[v] > 0;
      converging[v] = double(counts[v]) >= converging_share * double(setting.studies);
    }
    for (std::size_t r = first; r < std::min(runs, first + covariates_each); ++r) {
      std::mt19937_64 random(r + 1);
      meta.record.seed = r + 1;
      const std::vector<Term> terms = random_terms(setting, random);
      const Design design = make_design(terms, setting.studies);
      Tally all;
      add(*tested_by_exchange({.meta = meta,
                               .design = design,
                               .coefficient = 1,
                               .name = terms[0].name,
                               .studies = maps,
                               .tau2 = tau2},
                              {}, all),
          reported, converging, rates);
    }
  }
  std::printf("| %zu | %s | %s |", setting.studies, setting.images ? "images" : "peaks",
              covariate_names[std::size_t(setting.covariates)]);
  print_shares(rates.all, rates.tests);
  print_shares(rates.converging, rates.tests);
  print_corrected(rates);
}

/// Studies that have no effect in common, of which some have images and the others peaks: at random
/// places, or those that they would list of their own effects and noise.
struct MeanSetting {
  const char* name;
  double anisotropy;
  std::size_t images;
  bool listed = false;
  std::size_t studies = 20;
};

constexpr std::array mean_settings{
    MeanSetting{"peaks, anisotropy 0", 0, 0}, MeanSetting{"peaks, anisotropy 1", 1, 0},
    MeanSetting{"half peaks, half images", 0, 10}, MeanSetting{"images", 0, 20},
    MeanSetting{"peaks of each study's own effects, anisotropy 0", 0, 0, true}};

std::vector<Peak> peaks_anywhere(const Mask& mask, const Sample& sample, std::mt19937_64& random) {
  std::vector<Peak> peaks(std::uniform_int_distribution<std::size_t>(3, 14)(random));
  std::uniform_int_distribution<std::size_t> voxel(0, mask.size() - 1);
  std::exponential_distribution<double> beyond(1.25);
  for (Peak& peak : peaks) {
    peak.mm = mni_grid().mm(mask.voxel(voxel(random)));
    const double t = 3.2 + beyond(random), g = t * std::sqrt(variance_of_g(sample).at(0));
    peak.g = random() % 2 == 0 ? g : -g;
    peak.height_known = true;
  }
  return peaks;
}

/// The mean of a meta-analysis without effects.
TestedMap tested_mean(const MeanSetting& setting, const Mask& mask,
                      const std::vector<float>& correlation, std::uint64_t seed) {
  std::mt19937_64 random(seed);
  const Truth nothing{"nothing", 16, 0.25, 8, 0, 0};
  const ListingRule rule{"three a cluster", 0.001, 3, 8, 10, true};
  const SimulatedStudies simulated = simulate(
      nothing, setting.listed ? setting.studies : std::max<std::size_t>(setting.images, 1), seed);
  MetaAnalysis meta{{}, mask, correlation, {}};
  meta.record.fwhm = 20;
  meta.record.anisotropy = setting.anisotropy;
  meta.record.seed = seed;
  meta.record.randomizations = 59;  // a corrected p is a multiple of 1 / 60
  const EffectMaps effects(meta.record, mask, correlation);
  StudyMaps maps(setting.studies);
  for (std::size_t s = 0; s < setting.studies; ++s) {
    Member member;
    member.study.name = "study" + std::to_string(s);
    member.has_image = s < setting.images;
    if (member.has_image || setting.listed) member.study.sample = simulated.studies[s].sample;
    if (member.has_image) {
      for (const std::uint32_t index : mask.grid_index)
        maps.g[s].push_back(simulated.studies[s].g[index]);
    } else {
      if (!setting.listed)
        member.study.sample = {std::uniform_int_distribution<int>(9, 33)(random), 0};
      member.peaks = setting.listed ? listed_peaks(simulated.studies[s], mask, rule)
                                    : peaks_anywhere(mask, member.study.sample, random);
      maps.of_peaks[s] = SparseMap(effects.map_of(effects.around_reaching(member.peaks)));
    }
    meta.members.push_back(std::move(member));
  }
  const Design design = make_design({}, setting.studies);
  Tally all;
  if (setting.images < setting.studies)
    return *tested_by_relocation({.meta = meta, .design = design, .studies = maps, .tau2 = tau2},
                                 {}, all);
  return *tested_by_exchange(
      {.meta = meta, .design = design, .coefficient = 0, .name = "", .studies = maps, .tau2 = tau2},
      {}, all);
}

void run_mean(const MeanSetting& setting, const Mask& mask, const std::vector<float>& correlation,
              std::size_t runs) {
  Rates rates;
  const std::vector<bool> everywhere(mask.size(), true);
  for (std::size_t r = 1; r <= runs; ++r)
    add(tested_mean(setting, mask, correlation, r), everywhere, everywhere, rates);
  std::printf("| %s |", setting.name);
  print_shares(rates.all, rates.tests);
  print_corrected(rates);
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
  const std::string share = argv[1], table = argv[3] == nullptr ? "" : argv[3];
  const Mask gray = read_mask(share + "/mask_gray_matter.nii.gz");
  const std::size_t runs = std::stoul(argv[2]);
  const std::string levels_line = "p < .05 | p < .005 | p < .001 | ";
  if (table != "means") {
    const Mask mask = slices_of(gray, 38, 44);
    std::printf("| studies | of | covariates | %sconverging: %sFWE | cluster | TFCE |\n|%s\n",
                levels_line.c_str(), levels_line.c_str(),
                " --- | --- | --- | --- | --- | --- | --- | --- | --- | --- | --- | --- |");
    for (const std::size_t studies : {12UL, 21UL})
      for (const Covariates covariates :
           {Covariates::normal, Covariates::skewed, Covariates::groups, Covariates::two})
        run({studies, false, covariates}, mask, runs);
    run({21, true, Covariates::two}, mask, runs);
  }
  if (table != "terms") {
    const Mask mask = slices_of(gray, 30, 46);
    const std::vector<float> correlation = read_map(share + "/cor_gray_matter.nii.gz", mask);
    std::printf("\n| studies | %sFWE | cluster | TFCE |\n|%s\n", levels_line.c_str(),
                " --- | --- | --- | --- | --- | --- | --- |");
    for (const MeanSetting& setting : mean_settings) run_mean(setting, mask, correlation, runs);
  }
}
