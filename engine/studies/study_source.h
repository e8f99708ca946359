#pragma once

// Which file of the working folder says what a study found.

#include <string>

#include "engine/studies/studies_layer.h"
#include "engine/studies/study.h"

namespace kvo::studies {

struct StudySource {
  bool is_image;  ///< an image of t statistics, else a file of peaks
  std::string file;
};

/// The study's file. Throws Refusal when it has none, or both.
StudySource study_source(const Study& study);

}  // namespace kvo::studies
