#pragma once

// The two lists that the engine keeps in the working folder: the maps that the meta-analysis has,
// and the maps with a null distribution.

#include <cstdint>
#include <string_view>

#include "util/text.h"

/// Names of the maps, in the order of the file, and their number.
extern Q_string_list kvo_vs_maps;
extern std::int32_t kvo_maps;
/// Names of the maps with a null distribution, in ascending byte order, and their number.
extern Q_string_list kvo_vs_nds;
extern std::int32_t kvo_nds;

/// Loads the list of maps anew. A file that cannot be opened or read is a fatal error.
void kvo_load_kvo_maps_txt();
/// Loads the list of null distributions anew and returns its length; 0, with the list as it was,
/// when there is no such file.
int kvo3_load_nd_names();

/// The names that the list of maps holds: its non-empty lines, white space normalised.
Q_string_list kvo_read_map_names(std::string_view content);
/// The names that the list of null distributions holds, sorted: the first word of each non-empty
/// line but the first, which is a header. Those of negative tails are left out.
Q_string_list kvo_read_nd_names(std::string_view content);
/// Whether the name ends in "_n", as that of a map's negative tail does and that of no map.
bool kvo_is_negative_tail(std::string_view name);
