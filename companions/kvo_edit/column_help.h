#pragma once

// What the columns of the study table mean that say how a study lists its peaks, and where in a
// paper that stands.

#include <string>
#include <string_view>

#include "companions/kvo_edit/edit_layer.h"

namespace kvo::edit {

/// In whole sentences, plain text; null for all other columns.
const char* column_help(std::string_view name);

/// The same of all of them, a paragraph each.
std::string listing_help();

}  // namespace kvo::edit
