#pragma once

// Sleuth's lists of foci: comment lines with "//" that name a study, its space and its number of
// subjects, then a line of three coordinates for each focus.

#include <string>
#include <string_view>

#include "engine/formats/foreign.h"

namespace kvo::formats {

/// The studies of such a text. Throws Refusal, naming the path and the line, when a line is neither
/// a comment nor three numbers (a fourth is a t value), or coordinates stand before any study.
ForeignStudies sleuth_studies(const std::string& path, std::string_view text);

/// The text that holds the studies, all in MNI space; heights have no place in it.
std::string sleuth_text(const std::vector<NewStudy>& studies);

}  // namespace kvo::formats
