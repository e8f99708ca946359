#pragma once

// The files that other programs keep their studies in: tables with one peak per line, Sleuth's
// lists, NIMADS, and bundles of our own; how studies come from them into the working folder, and
// out of it.
//
// It knows nothing of maps or of how studies are combined.

#include "engine/studies/studies_layer.h"

namespace kvo::formats {
using namespace studies;
}
