#pragma once

// The lists of what a meta-analysis has, and the maps of an analysis.

#include <string>
#include <vector>

#include "companions/common/outputs.h"
#include "companions/kvo_core/mask.h"
#include "companions/kvo_core/null_distribution.h"
#include "companions/kvo_core/study_table.h"

inline constexpr const char* map_list_file = "kvo_maps.txt";
inline constexpr const char* null_list_file = "kvo_nd.txt";

/// A map of an analysis: NAME_suffix.nii.gz.
struct MapKind {
  const char* suffix;
  int intent_code;  ///< of NIfTI: what the values are
  float outside;    ///< the value beyond the mask
};
inline constexpr MapKind g_map{"_g", 1001, 0}, var_map{"_var", 1001, 0}, z_map{"_z", 5, 0},
    p_map{"_p", 22, 1}, tau2_map{"_tau2", 1001, 0}, I2_map{"_I2", 0, 0}, Q_map{"_Q", 0, 0},
    pFWE_map{"_pFWE", 22, 1};

/// Throws Refusal when the name cannot be that of an analysis: when its maps would replace a
/// study's image or pass for masks, or when its null distribution would pass for the negative tail
/// of another.
void check_analysis_name(const std::string& name, const StudyTable& table);

/// The map names of "kvo_maps.txt", in its order; none when there is no file.
std::vector<std::string> read_map_list();

/// The text of "kvo_nd.txt" for no null distribution.
std::string empty_null_list();

/// Has the lists show that the folder has the map, with its null distribution.
void list_map(Outputs& outputs, const std::string& name, const NullDistribution& null);

/// Has the maps of all the analyses of the folder removed that this system has written.
void remove_listed_maps(Outputs& outputs);

/// "KVO 4.31 " and the command, for the header of an image.
std::string image_description(const std::string& command);
