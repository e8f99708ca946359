#include "engine/verbs/verbs.h"

#include "engine/base/progress.h"
#include "engine/base/refusal.h"
#include "engine/inference/parts.h"
#include "engine/report/sources.h"
#include "engine/results/overview.h"

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
    {.label = "DL", .kind = Kind::word, .optional = true},
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
constexpr Argument jackknife_arguments[] = {{.label = "name"}};
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
constexpr Argument import_arguments[] = {
    {.label = "file", .kind = Kind::file},
    {.label = "space", .optional = true},
};
constexpr Argument export_arguments[] = {{.label = "file"}};
constexpr Argument extract_arguments[] = {{.label = "mask"}};

constexpr Reference effect_sizes{"effect sizes", {sources::hedges.citation}},
    talairach{"Talairach to MNI", {sources::lancaster.citation}},
    random_effects{"random effects", {sources::dersimonian.citation}},
    restricted{"REML", {sources::reml.citation}},
    tests{"intervals and tests", {sources::knapp.citation}},
    profile{"intervals of the heterogeneity", {sources::profile.citation}},
    regression{"DL", {sources::dersimonian.citation, sources::raudenbush.citation}},
    small_studies{"small-study effects", {sources::pustejovsky.citation}},
    heterogeneity{"heterogeneity", {sources::higgins.citation}},
    moments{"meta-regression by the method of moments",
            {sources::dersimonian.citation, sources::raudenbush.citation}},
    conjunction{"conjunction", {sources::nichols.citation}},
    prediction{"prediction interval", {sources::prediction.citation}};
constexpr Reference pp_references[] = {effect_sizes, talairach};
constexpr Reference globals_references[] = {effect_sizes, restricted,    tests,     profile,
                                            prediction,   small_studies, regression};
constexpr Reference mean_references[] = {random_effects, heterogeneity};
constexpr Reference lm_references[] = {moments};
constexpr Reference multi_references[] = {conjunction};
constexpr Reference extract_references[] = {restricted, tests, profile, prediction, small_studies};

constexpr Verb verbs[] = {
    {"pp", false, pp_arguments,
     "Preprocesses the studies of kvo_table.txt: a map of effects and one of variances for each. "
     "Removes the maps of an earlier meta-analysis.",
     "pp gray_matter, 1.0, 20, gray_matter, 50", "", pp_references, check_pp, run_pp},
    {"globals", true, globals_arguments,
     "Meta-analysis of the studies' global values, or of those of a subgroup, by REML with the "
     "tests of "
     "Hartung and Knapp; with DL by the method of moments and the normal distribution.",
     "MyGlobals = globals + age, adults",
     "the variables mean1 and sd1 (of two samples also mean2 and sd2); the example also age and "
     "adults.",
     globals_references, check_globals, run_globals},
    {"mean", true, mean_arguments, "The mean map of the studies, or of those of a subgroup.",
     "MyMean = mean", "the maps of pp.", mean_references, check_mean, run_mean},
    {"lm", true, lm_arguments, "A linear model of the studies, or of those of a subgroup.",
     "MyModel = lm age + patients, adults",
     "the maps of pp; the example also the variables age, patients and adults.", lm_references,
     check_lm, run_lm},
    {"threshold",
     false,
     threshold_arguments,
     "The clusters of a map beyond a probability, a peak z and a number of voxels.",
     "threshold MyMean, p, 0.005, 1, 10",
     "the map of a mean or a linear model.",
     {},
     check_threshold,
     run_threshold},
    {"jackknife",
     false,
     jackknife_arguments,
     "In how many runs of a mean's jackknife each of its clusters survives, and which study "
     "matters "
     "most.",
     "jackknife MyMean",
     "the thresholded map of a mean, and the maps of its jackknife.",
     {},
     check_jackknife,
     run_jackknife},
    {"multi", false, multi_arguments,
     "The conjunction of two meta-analyses. error: 1 to assume error in the p values, else 0; "
     "scenario: 2 to decrease them as in a better scenario, else 0.",
     "multi meta1, meta2, 0.0025, 0.00025, 10, 1, 2, 0.1",
     "the p map of each, meta1_p.nii.gz and meta2_p.nii.gz in the example.", multi_references,
     check_multi, run_multi},
    {"mask",
     true,
     mask_label_arguments,
     "A mask of a region of the atlas.",
     "Right_insula = mask label, 30",
     "",
     {},
     check_mask_label,
     run_mask_label},
    {"mask",
     true,
     mask_coordinate_arguments,
     "A mask of the 10 mm around an MNI coordinate.",
     "Thalamus = mask coordinate, 10, -20, 6",
     "",
     {},
     check_mask_coordinate,
     run_mask_coordinate},
    {"extract", false, extract_arguments,
     "The mean values of the studies inside a mask, and their pool.", "extract Right_insula",
     "the maps of pp, and the mask.", extract_references, check_extract, run_extract},
    {"import",
     false,
     import_arguments,
     "Adds the studies of a table (.csv, .tsv), a list of foci (.txt), a study set (.json) or a "
     "bundle (.zip) to the study table, with their peaks. space: MNI or Talairach, where the file "
     "does not say it.",
     "import studies.csv, MNI",
     "",
     {},
     check_import,
     run_import},
    {"export",
     false,
     export_arguments,
     "Writes all studies to a file of one of those kinds; a bundle (.zip) has their images and the "
     "batch too. 'bids' writes the maps of all analyses to a folder of that name, named as BIDS "
     "derivatives are.",
     "export all.zip",
     "",
     {},
     check_export,
     run_export},
};

}  // namespace

std::span<const Verb> all_verbs() {
  return verbs;
}

Command command_of(const std::string& text) {
  Command command = parse_command(text, all_verbs());
  if (command.verb->run != run_mean && command.verb->run != run_lm && asked_part())
    throw Refusal(std::string(part_variable) +
                  " asks for a part of the randomizations, and only mean and lm have any.");
  return command;
}

void say_overview() {
  if (asked_part()) return;
  try {
    if (const std::string page = renew_overview(all_verbs()); !page.empty())
      say("Overview: " + page);
  } catch (const Refusal& refusal) {
    say(refusal.what());
  }
}

}  // namespace kvo::verbs
