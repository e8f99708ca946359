#pragma once

// The region atlas: AAL regions with their Brodmann areas, and white-matter structures.

#include "resources/share/tissue.h"

namespace kvo::share {

/// A volume whose whole part is the region (1 to 116 the AAL regions, 117 to 179 white matter, 0
/// none) and whose first two decimals are the Brodmann area of a voxel of the cortex: 5.47 is
/// region 5 in area 47. Where an AAL region fills at least half a voxel, it prevails over white
/// matter. White-matter structures that no packaged atlas holds do not occur.
Volume region_atlas(const Sources& sources);

/// The part of each voxel, 0 to 1, that lies in deep white matter with one fibre direction.
Volume core_tract_fraction(const Sources& sources);

}  // namespace kvo::share
