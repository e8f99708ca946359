#pragma once

// The names of the atlas' brain regions: 1 to 116 the regions of the AAL atlas (from 91 on the
// cerebellum's), 117 to 179 the white-matter structures of the Ferrow et al atlas.

#include <string_view>

#include "util/text.h"

inline constexpr int KVO_REGIONS = 179;

/// Stores the text of an atlas value, whose whole part is the region and whose first two decimals,
/// when not zero, are the Brodmann area: "Left precentral gyrus, BA 4" of 1.04. A region that does
/// not exist is "(undefined)".
void Q_get_mni_label(Q_string& text, float value);

/// The texts of all regions in ascending byte order.
Q_string_list kvo_region_texts();
/// The region with the text; 0 when there is none.
int kvo_region_number(std::string_view text);
