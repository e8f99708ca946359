#pragma once

// What an estimate of a region from peaks has to say, as lines of text, tables and plots.

#include <optional>
#include <span>
#include <string>
#include <vector>

#include "engine/model/region_estimate.h"
#include "engine/report/html.h"
#include "engine/report/plots.h"
#include "engine/results/effect_summary.h"
#include "engine/results/results_layer.h"

namespace kvo::results {

/// What is known of a study in a region.
struct StudyInRegion {
  std::string study;
  Sample sample;
  std::optional<Effect> effect;  ///< of an image
  PeaksNearby peaks;             ///< of a study without one
};

/// "2 peaks nearby, 1 of them inside, g up to 0.83 at -38,4,2" or "nothing listed here"; "image" of
/// a study that has one.
std::string known_text(const StudyInRegion& study);

/// The effects of the studies that have images.
std::vector<StudyEffect> with_images(std::span<const StudyInRegion> studies);

/// Why peaks do not tell how studies differ.
inline constexpr const char* withheld_text =
    "cannot be told from peaks, as a study lists the highest places of its map, which say little "
    "of "
    "its value in the whole region";

/// The header and the rows of the studies: study, n, g, variance, standard error, weight in %, and
/// what is listed; NA where there is no such thing.
std::vector<std::vector<std::string>> region_rows(std::span<const StudyInRegion> studies,
                                                  const RegionEstimate& estimate);
/// Adds the estimate of the region and its sensitivity to a file.
void add_values(ResultTable& table, const RegionEstimate& estimate);

/// Adds the studies as a table and as a forest plot, the estimate's curve, its sensitivity, and the
/// estimates without each study to a report.
void add_region(HtmlReport& report, std::span<const StudyInRegion> studies,
                const RegionEstimate& estimate);

}  // namespace kvo::results
