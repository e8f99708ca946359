#pragma once

// The studies' maps as preprocessing makes and leaves them: effects around peaks and along tissue,
// the record of preprocessing, and which maps the folder's lists tell of.
//
// It knows no model of the studies.

#include "engine/studies/studies_layer.h"

namespace kvo::maps {
using namespace studies;
}
