#pragma once

// The table editor: the document with its history and its file, and the window that shows it.
//
// It knows the rules of the study table and nothing that is computed from one.

#include "engine/formats/formats_layer.h"

namespace kvo::edit {
using namespace studies;
}
