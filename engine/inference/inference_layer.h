#pragma once

// What can be concluded from maps: null distributions from randomized studies, p values,
// conjunctions, clusters with their regions.
//
// It writes nothing.

#include "engine/model/model_layer.h"

namespace kvo::inference {
using namespace model;
}
