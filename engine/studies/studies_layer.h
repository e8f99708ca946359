#pragma once

// The studies of a working folder as the user gives them: the table and its rules, the files with
// peaks or an image, effect sizes.
//
// It knows nothing of preprocessing, nor of how studies are combined.

#include "engine/images/images_layer.h"

namespace kvo::studies {
using namespace images;
}
