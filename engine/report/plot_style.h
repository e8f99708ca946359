#pragma once

// What the plots of studies have in common.

#include "engine/report/axis.h"
#include "engine/report/canvas.h"
#include "engine/report/report_layer.h"

namespace kvo::report {

inline constexpr Rgb paper = rgb_of(0xFFFFFF), ink = rgb_of(0x1E1E1E), dim_ink = rgb_of(0x5A5A5A),
                     faint = rgb_of(0xC3C3C3), data_colour = rgb_of(0x1E5AA5),
                     pooled_colour = rgb_of(0xB44B0F);

void draw_dashed(const Canvas& canvas, double x1, double y1, double x2, double y2);

/// Draws the axis at y with its ticks, their numbers and its title below.
void draw_horizontal_axis(const Canvas& canvas, const Axis& axis, double y, std::string_view title);

/// The picture of a plot. The blends along its edges are rounded, so that few enough colours are
/// left for a small file.
Picture plot_picture(const Canvas& canvas, std::string alt);

}  // namespace kvo::report
