#include "companions/kvo_core/report/brain_picture.h"

#include <filesystem>

#include "companions/common/error.h"
#include "companions/common/install.h"
#include "companions/kvo_core/report/canvas.h"

namespace {

std::vector<float> read_if_there(const char* file) {
  const std::string path = share_path(file);
  std::error_code not_there;
  if (!std::filesystem::exists(path, not_there)) return {};
  Image image = read_image(path);
  if (!(image.grid == mni_grid()))
    throw Refusal("'" + path + "' is not on the grid of MNI space with voxels of 2 mm.");
  return std::move(image.values);
}

}  // namespace

BrainBackground read_brain_background() {
  return {read_if_there("kvo_template.nii.gz"), read_if_there("mask_brain.nii.gz")};
}

Picture axial_slices(const BrainMap&, const BrainBackground&) {
  return Canvas(720, 400, {0, 0, 0}).picture("Axial slices");
}

Picture glass_brain(const BrainMap&, const BrainBackground&, std::span<const BrainMark>) {
  return Canvas(720, 260, {0, 0, 0}).picture("Glass brain");
}
