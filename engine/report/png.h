#pragma once

// PNG files (ISO/IEC 15948) of opaque pictures.

#include <cstdint>
#include <string>

#include "engine/report/report_layer.h"

namespace kvo::report {

/// The file of a picture of width x height pixels 0x00RRGGBB, `stride` of them from row to row;
/// with a palette when 256 colours are enough. `per_metre` is its resolution. The same pixels
/// always give the same bytes.
std::string png_of(const std::uint32_t* pixels, int width, int height, int stride,
                   unsigned per_metre);

}  // namespace kvo::report
