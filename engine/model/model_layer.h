#pragma once

// The statistics of studies at a single place: designs, pooling, meta-regression, tests of
// heterogeneity and asymmetry.
//
// It knows numbers and the variables of the study table: no images, no files of results.

#include "engine/maps/maps_layer.h"

namespace kvo::model {
using namespace maps;
}
