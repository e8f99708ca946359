#pragma once

// The part of a report that one can move through the brain in: slices, a glass brain, and what is
// known under the crosshair. All of it is in the page, packed, and a script of the page unpacks it.

#include <array>
#include <span>
#include <string>
#include <vector>

#include "engine/inference/clusters.h"
#include "engine/model/interval.h"
#include "engine/report/brain_picture.h"
#include "engine/report/html.h"
#include "engine/report/report_layer.h"

namespace kvo::report {

/// A place of which a study says something.
struct ExploredPlace {
  std::array<int, 3> mm;             ///< of MNI space
  double g;                          ///< NaN where the study does not say how large it is
  std::optional<Interval> interval;  ///< of a study with an image: the 95 % one
};

struct ExploredStudy {
  std::string name, sample;
  bool has_image = false;
  std::vector<ExploredPlace> places;  ///< its peaks; of an image those that the report lists
};

/// What is shown. Maps are of the whole MNI grid, NaN outside of the analysis' mask; empty ones are
/// left out.
struct Explored {
  std::vector<float> z;
  std::vector<float> p;                      ///< what was thresholded, in z's own direction
  std::string p_name;                        ///< "p (FWE), one-tailed"
  std::array<std::vector<float>, 3> effect;  ///< estimate and the limits of its 95 % interval
  std::vector<float> info;                   ///< share of information, 0 to 1
  std::vector<float> atlas;                  ///< by read_atlas()
  std::vector<ExploredStudy> studies;
};

/// Adds the explorer to a page. `surviving` is what is not 0 of the thresholded map, and the
/// crosshair begins at the first cluster's peak. Where scripts do not run nothing is to be seen of
/// it.
void add_explorer(HtmlReport& page, const Explored& explored, std::span<const float> surviving,
                  std::span<const Cluster> clusters, const BrainBackground& background);

}  // namespace kvo::report
