#pragma once

// Study sets as web repositories of neuroimaging studies give them (NIMADS, JSON).

#include <string>

#include "engine/formats/foreign.h"

namespace kvo::formats {

/// The studies of such a text. Of a study with several analyses that have points the one is taken
/// that an annotation includes, else the first, and a remark says so. Throws Refusal, naming the
/// path and the place in it, when it is not JSON or no study set.
ForeignStudies nimads_studies(const std::string& path, const std::string& text);

/// The text that holds the studies.
std::string nimads_text(const std::vector<NewStudy>& studies);

}  // namespace kvo::formats
