#pragma once

// Brain extent and tissue classes, from the single-subject T1 template of the packaged images.

#include <array>

#include "resources/share/volume.h"

namespace kvo::share {

/// The packaged images that everything is made from.
struct Sources {
  Image head;         ///< T1-weighted single-subject template with the skull
  Image stripped;     ///< the same without the skull, values 0 outside the brain
  Image aal;          ///< AAL atlas, values 1 to 116
  Image brodmann;     ///< Brodmann areas, values 1 to 48
  Image tracts;       ///< tractography atlas, 1 to 16 on the left and 101 to 116 on the right
  Image core_tracts;  ///< deep white matter as drawn on diffusion images, values 1 to 48
};

/// The brain with its ventricles and sulci: the stripped template, closed over the sulci, rid of
/// the remains of other tissue, and joined with the atlas's regions.
Mask brain_mask(const Sources& sources);

/// The brain and the cerebrospinal fluid around it.
Mask intracranial_mask(const Mask& brain);

/// A mixture of three normal distributions with one standard deviation: cerebrospinal fluid, gray
/// and white matter, in this order of their means.
struct TissueMixture {
  std::array<double, 3> mean{};
  std::array<double, 3> share{};
  double sd = 0;

  /// The posterior probability of the three classes at an intensity.
  [[nodiscard]] std::array<double, 3> posterior(double intensity) const;
};

/// Fits the mixture to a histogram (the number of voxels of each intensity 0, 1, 2, ...) by
/// expectation maximisation (Dempster et al. 1977, J R Stat Soc B 39:1).
TissueMixture fit_tissues(const std::vector<double>& histogram);

/// Probability of each tissue in each voxel, the mean over the voxel's points.
struct Tissues {
  Volume gray, white, fluid;
};

/// Thalamus, pallidum, putamen and caudate count as gray matter, although their intensity is close
/// to that of white matter. Between brain and skull there is nothing but cerebrospinal fluid.
Tissues classify_tissues(const Sources& sources, const Mask& brain, const Mask& intracranial);

}  // namespace kvo::share
