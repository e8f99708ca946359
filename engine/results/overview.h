#pragma once

// The first page of a working folder: its studies, its analyses, its reports, and the commands that
// make all of it again.

#include <span>
#include <string>

#include "engine/base/command.h"
#include "engine/results/results_layer.h"

namespace kvo::results {

/// Writes the page from what the folder holds, "index.html". Returns its name; "" when there is
/// nothing to show, or a file of that name which this system has not written as an overview is
/// left in its place. Throws Refusal when the page cannot be written; what cannot be read is left
/// out.
std::string renew_overview(std::span<const Verb> verbs);

}  // namespace kvo::results
