#include "engine/verbs/verbs.h"

namespace kvo::verbs {

namespace {

constexpr double mni_limit = 32767;

constexpr Argument pp_arguments[] = {
    {.label = "template"},
    {.label = "anisotropy", .kind = Kind::number, .least = 0, .most = 1},
    {.label = "fwhm", .kind = Kind::number, .least = 4, .most = 100},
    {.label = "mask"},
    {.label = "randomizations", .kind = Kind::whole, .least = 1, .most = 10000},
};
constexpr Argument mean_arguments[] = {
    {.label = "filter", .kind = Kind::variable, .optional = true}};
constexpr Argument globals_arguments[] = {
    {.label = "model", .kind = Kind::model, .optional = true},
    {.label = "filter", .kind = Kind::variable, .optional = true},
};
constexpr Argument lm_arguments[] = {
    {.label = "model", .kind = Kind::model},
    {.label = "filter", .kind = Kind::variable, .optional = true},
};
constexpr Argument threshold_arguments[] = {
    {.label = "map"},
    {.label = "p", .kind = Kind::word},
    {.label = "probability", .kind = Kind::number, .least = 1e-7, .most = 0.5},
    {.label = "peak", .kind = Kind::number, .least = 0, .most = 100},
    {.label = "extent", .kind = Kind::whole, .least = 1, .most = 1e6},
};
constexpr Argument multi_arguments[] = {
    {.label = "name"},
    {.label = "name"},
    {.label = "p", .kind = Kind::number, .least = 1e-7, .most = 0.5},
    {.label = "peak", .kind = Kind::number, .least = 1e-7, .most = 0.5},
    {.label = "extent", .kind = Kind::whole, .least = 1, .most = 1e6},
    {.label = "error", .kind = Kind::whole, .least = 0, .most = 2},
    {.label = "scenario", .kind = Kind::whole, .least = 0, .most = 2},
    {.label = "tolerable", .kind = Kind::number, .least = 1e-7, .most = 0.5},
};
constexpr Argument mask_label_arguments[] = {
    {.label = "label", .kind = Kind::word},
    {.label = "number", .kind = Kind::whole, .least = 1, .most = 1000},
};
constexpr Argument mask_coordinate_arguments[] = {
    {.label = "coordinate", .kind = Kind::word},
    {.label = "x", .kind = Kind::number, .least = -mni_limit, .most = mni_limit},
    {.label = "y", .kind = Kind::number, .least = -mni_limit, .most = mni_limit},
    {.label = "z", .kind = Kind::number, .least = -mni_limit, .most = mni_limit},
};
constexpr Argument extract_arguments[] = {{.label = "mask"}};

constexpr Verb verbs[] = {
    {"pp", false, pp_arguments,
     "Preprocesses the studies of kvo_table.txt: a map of effects and one of variances for each. "
     "Removes the maps of an earlier meta-analysis.",
     "pp gray_matter, 1.0, 20, gray_matter, 50", "",
     "Effect sizes: Hedges 1981; Talairach to MNI: Lancaster et al. 2007.", check_pp, run_pp},
    {"globals", true, globals_arguments,
     "Meta-analysis of the studies' global values, or of those of a subgroup.",
     "MyGlobals = globals + age, adults",
     "the variables mean1 and sd1 (of two samples also mean2 and sd2); the example also age and "
     "adults.",
     "Effect sizes: Hedges 1981; random effects: DerSimonian and Laird 1986, Raudenbush 2009.",
     check_globals, run_globals},
    {"mean", true, mean_arguments, "The mean map of the studies, or of those of a subgroup.",
     "MyMean = mean", "the maps of pp.",
     "Random effects: DerSimonian and Laird 1986; heterogeneity: Higgins and Thompson 2002.",
     check_mean, run_mean},
    {"lm", true, lm_arguments, "A linear model of the studies, or of those of a subgroup.",
     "MyModel = lm age + patients, adults",
     "the maps of pp; the example also the variables age, patients and adults.",
     "Meta-regression by the method of moments: DerSimonian and Laird 1986; Raudenbush 2009.",
     check_lm, run_lm},
    {"threshold", false, threshold_arguments,
     "The clusters of a map beyond a probability, a peak z and a number of voxels.",
     "threshold MyMean, p, 0.005, 1, 10", "the map of a mean or a linear model.", "",
     check_threshold, run_threshold},
    {"multi", false, multi_arguments,
     "The conjunction of two meta-analyses. error: 1 to assume error in the p values, else 0; "
     "scenario: 2 to decrease them as in a better scenario, else 0.",
     "multi meta1, meta2, 0.0025, 0.00025, 10, 1, 2, 0.1",
     "the p map of each, meta1_p.nii.gz and meta2_p.nii.gz in the example.",
     "Conjunction: Nichols et al. 2005.", check_multi, run_multi},
    {"mask", true, mask_label_arguments, "A mask of a region of the atlas.",
     "Right_insula = mask label, 30", "", "", check_mask_label, run_mask_label},
    {"mask", true, mask_coordinate_arguments, "A mask of the 10 mm around an MNI coordinate.",
     "Thalamus = mask coordinate, 10, -20, 6", "", "", check_mask_coordinate, run_mask_coordinate},
    {"extract", false, extract_arguments,
     "The mean values of the studies inside a mask, and their pool.", "extract Right_insula",
     "the maps of pp, and the mask.",
     "Random effects: DerSimonian and Laird 1986; prediction interval: Higgins et al. 2009; funnel "
     "plot asymmetry: Egger et al. 1997.",
     check_extract, run_extract},
};

}  // namespace

std::span<const Verb> all_verbs() {
  return verbs;
}

}  // namespace kvo::verbs
