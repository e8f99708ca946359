#pragma once

// Creation of a mask: a region of the atlas, or the surroundings of a coordinate.

#include <string>

#include "analyses/composed.h"
#include "dialogs/widgets.h"

/// The mask of a region; without a typed name the region's text names it.
Kvo_composed kvo_compose_label_mask(const std::string& region, const std::string& typed_name);
/// The mask around a coordinate; without a typed name its numbers name it.
Kvo_composed kvo_compose_coordinate_mask(const Q_voxel& coordinate, const std::string& typed_name);

/// Handler of the menu action.
void kvo3_dialog_create_roimask();
