// kvo_make_share SOURCE TARGET: makes the templates, masks and atlas of the installation's "share"
// folder in the folder TARGET from the images of the Debian package mricron-data in SOURCE.

#include <cstdio>
#include <exception>
#include <filesystem>
#include <string>
#include <vector>

#include "engine/base/refusal.h"
#include "resources/share/regions.h"
#include "resources/share/tissue.h"

using namespace kvo::share;

namespace {

// Takes the one subject's noise out of the templates, not the borders between the tissues.
constexpr double template_fwhm_mm = 4;

// A tissue's mask is where its template is at least this: just below one half, because smoothing
// takes from a tissue that is thin. It holds 96 % of the gray matter's voxels and 97 % of the
// white's.
constexpr float tissue_threshold = 0.4F;

// Below it fractional anisotropy is not that of white matter (Smith et al. 2006, NeuroImage
// 31:1487).
constexpr float skeleton_threshold = 0.2F;

// What diffusion studies of healthy adults find, in round numbers: fractional anisotropy of fluid,
// gray matter, white matter of mixed direction, and the core of the large tracts.
constexpr float fluid_anisotropy = 0.05F;
constexpr float gray_anisotropy = 0.15F;
constexpr float white_anisotropy = 0.35F;
constexpr float core_anisotropy = 0.60F;

struct Output {
  const char* name;
  const char* description;
  Volume volume;
};

Mask within(Mask mask, const Mask& limit) {
  for (std::size_t v = 0; v < mask.size(); ++v) mask[v] &= limit[v];
  return mask;
}

Sources read_sources(const std::string& folder) {
  const auto image = [&](const char* name) { return read_image(folder + "/" + name); };
  return {image("ch2.nii.gz"),         image("ch2bet.nii.gz"),
          image("aal.nii.gz"),         image("brodmann.nii.gz"),
          image("natbrainlab.nii.gz"), image("JHU-WhiteMatter-labels-2mm.nii.gz")};
}

/// Fractional anisotropy to be expected from the tissues of each voxel.
Volume expected_anisotropy(const Tissues& tissues, const Volume& core) {
  Volume expected(core.size());
  for (std::size_t v = 0; v < core.size(); ++v)
    expected[v] =
        tissues.fluid[v] * fluid_anisotropy + tissues.gray[v] * gray_anisotropy +
        tissues.white[v] * (white_anisotropy + core[v] * (core_anisotropy - white_anisotropy));
  return expected;
}

float mean_of(Samples samples) {
  double sum = 0;
  for (const float value : samples) sum += double(value);
  return float(sum / double(points_per_voxel));
}

std::vector<Output> make_outputs(const Sources& sources) {
  const Mask brain = brain_mask(sources);
  const Mask intracranial = intracranial_mask(brain);
  const Tissues tissues = classify_tissues(sources, brain, intracranial);
  const auto smoothed = [](const Volume& tissue) { return smooth(tissue, template_fwhm_mm); };
  const Volume gray = smoothed(tissues.gray);
  const Volume white = smoothed(tissues.white);
  const Volume fluid = smoothed(tissues.fluid);
  const Volume anisotropy = smoothed(expected_anisotropy(tissues, core_tract_fraction(sources)));
  const Mask white_mask = within(at_least(white, tissue_threshold), brain);
  const Mask skeleton =
      sheet_centres(anisotropy, within(at_least(anisotropy, skeleton_threshold), white_mask));
  return {
      {"kvo_template", "Quorvane: single-subject T1 template",
       measure_voxels(sources.head, Sampling::trilinear, {}, mean_of)},
      {"atlas_aal_frw", "Quorvane: AAL regions, Brodmann areas, white-matter tracts",
       region_atlas(sources)},
      {"mask_brain", "Quorvane: mask of the brain", to_volume(brain)},
      {"mask_intracranial", "Quorvane: mask of the intracranial volume", to_volume(intracranial)},
      {"mask_gray_matter", "Quorvane: mask of gray matter",
       to_volume(within(at_least(gray, tissue_threshold), brain))},
      {"mask_white_matter", "Quorvane: mask of white matter", to_volume(white_mask)},
      {"mask_cerebrospinal_fluid", "Quorvane: mask of cerebrospinal fluid",
       to_volume(within(at_least(fluid, tissue_threshold), intracranial))},
      {"mask_tbss", "Quorvane: centres of the expected anisotropy", to_volume(skeleton)},
      {"cor_gray_matter", "Quorvane: probability of gray matter", gray},
      {"cor_white_matter", "Quorvane: probability of white matter", white},
      {"cor_cerebrospinal_fluid", "Quorvane: probability of cerebrospinal fluid", fluid},
      {"cor_fractional_anisotropy", "Quorvane: anisotropy expected from tissue and tracts",
       anisotropy},
  };
}

/// Writes the image below a temporary name first, so that a build never finds half of it.
void write_output(const std::string& folder, const Output& output) {
  Image image;
  image.grid = mni_grid();
  image.space = Space::mni;
  image.description = output.description;
  image.values = output.volume;
  const std::string temporary = folder + "/unfinished_" + output.name + ".nii.gz";
  write_image(temporary, image);
  std::filesystem::rename(temporary, folder + "/" + output.name + ".nii.gz");
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fputs("Usage: kvo_make_share SOURCE TARGET\n", stderr);
    return 2;
  }
  try {
    const Sources sources = read_sources(argv[1]);
    std::filesystem::create_directories(argv[2]);
    for (const Output& output : make_outputs(sources)) write_output(argv[2], output);
  } catch (const std::exception& problem) {
    std::fprintf(stderr, "kvo_make_share: %s\n", problem.what());
    return 1;
  }
  return 0;
}
