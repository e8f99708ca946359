#pragma once

// The claims that fuzz targets make; unlike assert they hold in every build.

#include <cstdlib>

inline void check(bool holds) {
  if (!holds) std::abort();
}
