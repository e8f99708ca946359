#include "engine/report/brain_picture.h"

#include <algorithm>
#include <cmath>
#include <filesystem>

#include "engine/base/install.h"
#include "engine/base/refusal.h"
#include "engine/report/brain_box.h"

namespace kvo::report {

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

BrainBox box_of_map(std::span<const float> map) {
  const Grid& grid = mni_grid();
  BrainBox box;
  box.low = grid.size;
  std::size_t voxel = 0;
  for (int k = 0; k < grid.size[2]; ++k)
    for (int j = 0; j < grid.size[1]; ++j)
      for (int i = 0; i < grid.size[0]; ++i) {
        const float value = map[voxel++];
        if (value == 0 || !std::isfinite(value)) continue;
        const std::array<int, 3> place = {i, j, k};
        for (std::size_t axis = 0; axis < 3; ++axis) {
          box.low[axis] = std::min(box.low[axis], place[axis]);
          box.high[axis] = std::max(box.high[axis], place[axis]);
        }
      }
  return box;
}

BrainBox brain_box(const BrainMap& map, const BrainBackground& background) {
  const Grid& grid = mni_grid();
  BrainBox box{{0, 0, 0}, {grid.size[0] - 1, grid.size[1] - 1, grid.size[2] - 1}};
  if (background.brain.empty()) return box;
  const BrainBox brain = box_of_map(background.brain), found = box_of_map(map.z);
  if (brain.empty()) return box;
  for (std::size_t axis = 0; axis < 3; ++axis) {
    const int low = std::min(brain.low[axis], found.low[axis]);
    const int high = std::max(brain.high[axis], found.high[axis]);
    box.low[axis] = std::max(box.low[axis], low - 1);
    box.high[axis] = std::min(box.high[axis], high + 1);
  }
  return box;
}

}  // namespace kvo::report
