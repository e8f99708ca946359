#pragma once

// The verbs of the command language: each checks a command against the working folder and carries
// it out with what the layers before it offer.
//
// Only programs stand above it.

#include "engine/results/results_layer.h"

namespace kvo::verbs {
using namespace results;
}
