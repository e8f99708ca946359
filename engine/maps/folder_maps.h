#pragma once

// The maps of the analyses in the working folder: which kinds there are, and what the folder's
// lists say about them.

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "engine/base/outputs.h"
#include "engine/maps/maps_layer.h"
#include "engine/studies/study.h"

namespace kvo::maps {

/// A map of an analysis: NAME_suffix.nii.gz.
struct MapKind {
  const char* suffix;
  int intent_code;  ///< of NIfTI: what the values are
  float outside;    ///< the value outside the mask
};
inline constexpr MapKind g_map{"_g", 1001, 0}, var_map{"_var", 1001, 0}, z_map{"_z", 5, 0},
    p_map{"_p", 22, 1}, tau2_map{"_tau2", 1001, 0}, I2_map{"_I2", 0, 0}, Q_map{"_Q", 0, 0},
    ci_low_map{"_ci_low", 1001, 0}, ci_high_map{"_ci_high", 1001, 0}, info_map{"_info", 0, 0},
    tfce_map{"_TFCE", 0, 0}, negative_p_map{"_n_p", 22, 1};

/// The maps of one kind of p: one-tailed for positive and for negative effects, and two-tailed.
struct PMapKinds {
  MapKind positive, negative, both;
  const char* heading;  ///< of a column of them
};
/// Uncorrected; corrected for the family-wise error by the voxel's own value, by the extent of its
/// cluster and by threshold-free cluster enhancement; and the false discovery rate.
inline constexpr std::array p_map_kinds{
    PMapKinds{p_map, negative_p_map, {"_both_p", 22, 1}, "p"},
    PMapKinds{{"_pFWE", 22, 1}, {"_n_pFWE", 22, 1}, {"_both_pFWE", 22, 1}, "p (FWE)"},
    PMapKinds{
        {"_pcluster", 22, 1}, {"_n_pcluster", 22, 1}, {"_both_pcluster", 22, 1}, "p (cluster)"},
    PMapKinds{{"_pTFCE", 22, 1}, {"_n_pTFCE", 22, 1}, {"_both_pTFCE", 22, 1}, "p (TFCE)"},
    PMapKinds{{"_q", 22, 1}, {"_n_q", 22, 1}, {"_both_q", 22, 1}, "q (FDR)"}};

/// All kinds.
std::vector<MapKind> map_kinds();

/// What a name selects to threshold a map by: the map of an analysis and one kind of its p, "NAME",
/// "NAME_pFWE", or "NAME_both_pFWE" for the two-tailed one.
struct ChosenP {
  std::string map;
  std::size_t kind = 0;  ///< of p_map_kinds
  bool both = false;
};
ChosenP chosen_p(const std::string& name);

/// The command of an analysis, and who took part.
struct AnalysisFacts {
  std::string command;
  std::size_t studies = 0, participants = 0;
  std::string left_out{};  ///< in a jackknife, the study left out
};

std::string map_file(const std::string& name, const MapKind& kind);

/// The names of the maps of a linear model's coefficients, the intercept first: "NAME_00",
/// "NAME_10", "NAME_01". Without terms the map has the name itself.
std::vector<std::string> coefficient_map_names(const std::string& name, std::size_t terms);

/// Throws Refusal when something of that name would be mistaken for a mask.
void check_no_mask(const std::string& name);

/// Throws Refusal when the name cannot be that of an analysis: when its maps would replace a
/// study's image or be mistaken for masks, or its null distribution for the negative tail of
/// another.
void check_analysis_name(const std::string& name, const StudyTable& table);

/// Whether the image is a file (and no link) that this system has written.
bool written_by_this_system(const std::string& path);

/// The command that made an image of this system, as in image_description(); "" when another
/// program wrote the image or the header had no room for the whole command.
std::string command_of_image(const std::string& path);

/// The map names of "kvo_maps.txt", in its order; none when there is no file.
std::vector<std::string> read_map_list();

/// The number of values in the null distribution of the map. Throws Refusal when "kvo_nd.txt" does
/// not give it.
std::size_t null_values_of(const std::string& map);

/// The number of randomizations behind the corrected p of a kind; 0 when "kvo_nd.txt" does not give
/// it.
std::size_t randomizations_of(const std::string& map, std::size_t kind);

/// The text of "kvo_analyses.txt" without any analyses.
std::string empty_analysis_list();

/// What "kvo_analyses.txt" says about the map's analysis; nothing when it has no line for it.
/// Throws Refusal when the line is malformed.
std::optional<AnalysisFacts> read_analysis_facts(const std::string& map);

/// Removes, on commit, the maps of all analyses in the folder that this program has written.
void remove_listed_maps(Outputs& outputs);

/// "KVO 4.31 " and the command, for the header of an image.
std::string image_description(const std::string& command);

}  // namespace kvo::maps
