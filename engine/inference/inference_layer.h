#pragma once

// What can be concluded from maps: null distributions from randomized studies, p values,
// conjunctions, clusters with their regions.
//
// It writes nothing but the parts of randomizations that other processes merge.

#include "engine/model/model_layer.h"

namespace kvo::inference {
using namespace model;
}
