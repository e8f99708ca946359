// Usage: estimates_bench STUDIES MASK FOLDER
// Prints the seconds that estimates from the peaks of so many simulated studies take: the choice of
// what is assumed, the fit under default assumptions, and the maps. Each lists at most 13 peaks.
// Leaves the studies and the estimate for the same in NumPy: peaks.txt and estimate.f32.

#include <chrono>
#include <cstdio>

#include "bench/simulated_studies.h"
#include "engine/model/peak_settings.h"

using namespace kvo::model;
using namespace kvo::simulated;

namespace {

constexpr std::size_t distinct = 21, most_peaks = 13;

/// Beyond the distinct ones they are copies whose peaks are a little off.
std::vector<ListingStudy> studies_of(std::size_t count, const Mask& mask) {
  const SimulatedStudies simulated = simulate({"", 15, 0.27, 10, 0.19, 0.29}, distinct, 1);
  std::mt19937 random(1);
  std::uniform_real_distribution<double> off(-6, 6);
  std::vector<ListingStudy> studies;
  for (std::size_t s = 0; s < count; ++s) {
    const SimulatedStudy& one = simulated.studies[s % distinct];
    ListingStudy study{variance_of_g(one.sample),
                       hedges_g(t_of_p(0.001, one.sample), one.sample),
                       {},
                       Eigen::VectorXd::Ones(1)};
    for (const Peak& peak : listed_peaks(one, mask, {"", 0.001, 4, 8, 80})) {
      Eigen::Vector3d mm = peak.mm;
      if (s >= distinct) mm += Eigen::Vector3d(off(random), off(random), off(random));
      if (study.peaks.size() < most_peaks) study.peaks.push_back({mm, peak.g});
    }
    studies.push_back(std::move(study));
  }
  return studies;
}

double seconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

}  // namespace

int main(int, char** argv) {
  const Mask mask = read_mask(argv[2]);
  const std::vector<ListingStudy> studies = studies_of(std::stoul(argv[1]), mask);
  const std::string folder = argv[3];
  std::FILE* peaks = std::fopen((folder + "/peaks.txt").c_str(), "w");
  for (std::size_t s = 0; s < studies.size(); ++s)
    for (const ListedPeak& peak : studies[s].peaks)
      std::fprintf(peaks, "%zu %.17g %.17g %.17g %.17g %.17g %.17g %.17g\n", s,
                   studies[s].variance.base, studies[s].variance.slope, studies[s].threshold,
                   peak.mm[0], peak.mm[1], peak.mm[2], peak.g);
  std::fclose(peaks);

  const double start = seconds();
  choose_assumptions(studies, mask, std::nullopt);
  const double chosen = seconds();
  const PeakFit fit = fit_peaks(studies, mask, {});
  const double fitted = seconds();
  const PeakEstimates maps = estimates_of(fit, mask);
  std::printf("%.6f %.6f %.6f\n", chosen - start, fitted - chosen, seconds() - fitted);
  std::FILE* estimate = std::fopen((folder + "/estimate.f32").c_str(), "wb");
  std::fwrite(maps.estimates[0].data(), sizeof(float), mask.size(), estimate);
  std::fclose(estimate);
}
