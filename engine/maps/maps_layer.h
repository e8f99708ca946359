#pragma once

// The studies' maps as preprocessing makes and leaves them: effects around peaks and along tissue,
// the record of preprocessing, and the maps in the folder's lists.
//
// It knows nothing of models of the studies.

#include "engine/studies/studies_layer.h"

namespace kvo::maps {
using namespace studies;
}
