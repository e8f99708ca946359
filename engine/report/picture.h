#pragma once

// Pictures in memory. They are drawn with two pixels for each pixel of a page, so that they are
// sharp in print too.

#include <string>

#include "engine/report/report_layer.h"

namespace kvo::report {

struct Picture {
  std::string png;            ///< the file's bytes
  int width = 0, height = 0;  ///< in pixels of a page: half of those of the file
  std::string alt;            ///< what is to be seen, for those who do not see it; plain text
};

}  // namespace kvo::report
