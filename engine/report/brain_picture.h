#pragma once

// Maps of the brain as pictures. Left is left (neurological convention).

#include <span>
#include <string>
#include <vector>

#include "engine/images/mask.h"
#include "engine/report/picture.h"
#include "engine/report/report_layer.h"

namespace kvo::report {

/// What maps are drawn on: values of the MNI grid. Either may be empty: it is left out.
struct BrainBackground {
  std::vector<float> anatomy;  ///< of a head or a brain, brighter with higher values
  std::vector<float> brain;    ///< above 0 in the brain
};

/// Reads "kvo_template" and "mask_brain" of the installation. One that is not there is left empty.
/// Throws Refusal, naming the file, when one is not an image on the MNI grid.
BrainBackground read_brain_background();

/// A name of a place that is written on the glass brain.
struct BrainMark {
  Voxel voxel;
  std::string text;
};

/// A map to be drawn: what is 0 or not finite is not shown.
struct BrainMap {
  std::span<const float> z;  ///< of the whole MNI grid
  std::string statistic = "z";
};

/// Axial slices from the lowest to the highest that something is in, in even steps of 2 mm or more
/// (4 mm for a whole brain), each with its MNI z in mm, and the colour bar. Colours reach to where
/// half of the voxels around have one. Of the whole brain when nothing is in the map.
Picture axial_slices(const BrainMap& map, const BrainBackground& background);

/// The map's largest magnitudes along each line of sight through a transparent brain, in three
/// views: sagittal, with the front at the right, coronal and axial, each with its sides marked; and
/// the colour bar. Of marks that would cover one another, the first are drawn.
Picture glass_brain(const BrainMap& map, const BrainBackground& background,
                    std::span<const BrainMark> marks);

}  // namespace kvo::report
