#pragma once

// Pictures and pages: draws brains and plots, words the methods, writes HTML. It needs no display.
//
// It computes no result: what it shows is handed to it.

#include "engine/inference/inference_layer.h"

namespace kvo::report {
using namespace inference;
}
