#pragma once

// Study sets as web repositories of neuroimaging studies give them (NIMADS, JSON).

#include <string>

#include "engine/formats/foreign.h"

namespace kvo::formats {

/// The studies of such a text. Where several analyses of a study have points, the one that an
/// annotation includes is taken, else the first, and a remark says so. Throws Refusal, naming the
/// path and the place in it, when it is not JSON or not a study set.
ForeignStudies nimads_studies(const std::string& path, const std::string& text);

/// The text that holds the studies.
std::string nimads_text(const std::vector<NewStudy>& studies);

}  // namespace kvo::formats
