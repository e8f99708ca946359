#pragma once

// Where two meta-analyses agree.

#include <span>
#include <string>
#include <vector>

#include "engine/inference/inference_layer.h"
#include "engine/inference/p_maps.h"

namespace kvo::inference {

/// How a one-tailed p of a meta-analysis counts.
///
/// With error, z = Φ⁻¹(1 - p) is taken as measured with an error of variance 1 on top of its own,
/// which doubles the variance: p' = Φ(-z / √2). No p below 0.5 becomes smaller.
///
/// In the better scenario, in addition, the log odds of p' are multiplied by the one factor that
/// restores the tolerable p. It acts on log odds because a factor on p' itself would move 0.5,
/// which favours neither direction, and would treat the directions differently, while a factor on z
/// would undo the error at every p. So p = 0.5 and the tolerable p stay; anything below the
/// tolerable p remains larger than it was, though less so than without the scenario. Without error
/// there is nothing to scale back.
struct ConjunctionMode {
  bool error = false;
  bool scenario = false;
  double tolerable = 0.1;  ///< above 0 and up to 0.5
};

struct Conjunction {
  /// One-tailed p of the conjunction in either direction, over the whole grid; 1 where a map has no
  /// effect in that direction.
  BothTails tails;
  std::size_t voxels = 0;  ///< in which both maps are defined
};

/// The conjunction of two p maps: in each direction the larger p (Nichols et al. 2005, NeuroImage
/// 25:653). A p of 1 means that the voxel is outside a map's mask or has no effect at all, and
/// takes part in neither direction; nor does a p that belongs to the other direction by the map's
/// own header.
Conjunction conjunction_of(const Image& first, const Image& second, const ConjunctionMode& mode);

/// The signed z of a conjunction where its p is below the threshold, else 0.
std::vector<float> conjunction_z(const Conjunction& conjunction, float p);

}  // namespace kvo::inference
