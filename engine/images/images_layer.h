#pragma once

// Images of the head on the one grid that all results have: reading and writing, masks, conversion
// from Talairach to MNI space.
//
// It knows how voxels are placed and nothing of whose they are: no studies, no statistics.

#include "engine/base/base_layer.h"

namespace kvo::images {
using namespace base;
}
