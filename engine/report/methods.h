#pragma once

// The paragraph on methods that the author of an article can start from.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "engine/report/report_layer.h"
#include "engine/report/sources.h"

namespace kvo::report {

struct MethodsFacts {
  enum class Analysis { mean, linear_model, conjunction, extraction, globals };
  Analysis analysis = Analysis::mean;

  std::size_t studies = 0, participants = 0;  ///< participants: 0 when unknown
  std::string subgroup;                       ///< the filter's variable, or ""
  std::string left_out;                       ///< of a jackknife: the study that it is without
  std::vector<std::string> variables;         ///< of the model, or of the globals' model
  std::string term;                           ///< whose map a linear model's map is; "" intercept
  std::string mask_of_extraction;
  /// Of globals and extractions: whether REML was used, not the method of moments; Hartung and
  /// Knapp's tests, not those of the normal distribution; whether there are a prediction interval
  /// and a test for small-study effects.
  bool restricted_likelihood = false, hartung_knapp = false;
  bool prediction_interval = false, small_study_test = false;

  /// How the studies were preprocessed; not used for globals and conjunction.
  std::size_t studies_with_images = 0;  ///< of the studies; the rest have peaks
  bool talairach = false;               ///< whether some coordinates were in Talairach space
  bool unknown_heights = false;         ///< whether some peaks had no t value
  bool estimated_from_peaks = false;    ///< whether the effects are those of the peaks' likelihood
  double fwhm = 20, anisotropy = 0;
  std::string correlation_template, mask;
  std::size_t randomizations = 0;
  std::uint64_t seed = 0;

  struct Thresholds {
    double p = 0;
    std::size_t kind = 0;          ///< of p, in p_map_kinds
    bool both = false;             ///< whether p is two-tailed
    std::optional<double> peak_z;  ///< of a cluster's peak
    std::optional<double> peak_p;  ///< likewise, as a conjunction has it
    std::size_t extent = 1;        ///< voxels
  };
  std::optional<Thresholds> thresholds;

  /// The two meta-analyses of a conjunction.
  std::string first, second;
  bool error_assumed = false, better_scenario = false;
  double tolerable_p = 0;
};

/// The paragraph, in whole sentences with the sources in parentheses, followed by those sources.
struct Methods {
  std::string paragraph;
  std::vector<Source> sources;  ///< alphabetical
};
Methods methods_of(const MethodsFacts& facts);

}  // namespace kvo::report
