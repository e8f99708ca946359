#include "engine/images/mask.h"

#include <algorithm>
#include <cmath>

#include "engine/base/exists.h"
#include "engine/base/install.h"
#include "engine/base/refusal.h"
#include "workspace/files/file_names.h"

namespace kvo::images {

namespace {

enum class First { installation, working_folder };

/// The path of a file of the installation or of the working folder.
std::string path_of(std::string file, const std::string& what, First first) {
  std::string shared = share_path(file);
  if (first == First::working_folder && path_exists(file)) return file;
  if (path_exists(shared)) return shared;
  if (path_exists(file)) return file;
  throw Refusal("There is no " + what + ": neither the share folder nor the working folder has '" +
                file + "'.");
}

}  // namespace

Voxel Mask::voxel(std::size_t n) const {
  return mni_grid().voxel(grid_index[n]);
}

std::string mask_file(const std::string& name) {
  return KVO_MASK_PREFIX + name + KVO_IMAGE_SUFFIX;
}

std::string mask_path(const std::string& name) {
  return path_of(mask_file(name), "mask '" + name + "'", First::installation);
}

std::string own_mask_path(const std::string& name) {
  return path_of(mask_file(name), "mask '" + name + "'", First::working_folder);
}

std::string template_file(const std::string& name) {
  return "cor_" + name + KVO_IMAGE_SUFFIX;
}

std::string template_path(const std::string& name) {
  return path_of(template_file(name), "correlation template '" + name + "'", First::installation);
}

Image read_on_mni_grid(const std::string& path) {
  Image image = read_image(path);
  if (image.placement.code == 0)
    throw Refusal("'" + path +
                  "' has neither qform nor sform in its header: left and right are unknown.");
  if (!(image.grid == mni_grid()))
    throw Refusal("'" + path + "' is not on the MNI grid of 91 x 109 x 91 voxels of 2 mm.");
  return image;
}

Mask read_mask(const std::string& path) {
  const Image image = read_on_mni_grid(path);
  std::vector<bool> inside;
  inside.reserve(image.values.size());
  for (const float value : image.values) inside.push_back(value > 0);
  Mask mask = mask_of(std::move(inside));
  if (mask.size() == 0) throw Refusal("'" + path + "' has no voxel above 0.");
  return mask;
}

Mask mask_of(std::vector<bool> inside) {
  const std::size_t plane = mni_grid().plane();
  Mask mask;
  mask.inside = std::move(inside);
  for (std::size_t index = 0; index < mask.inside.size(); ++index) {
    if (index % plane == 0) mask.slice_begin.push_back(mask.size());
    if (mask.inside[index]) mask.grid_index.push_back(std::uint32_t(index));
  }
  mask.slice_begin.push_back(mask.size());
  return mask;
}

std::vector<float> read_map(const std::string& path, const Mask& mask) {
  const Image image = read_on_mni_grid(path);
  std::vector<float> map;
  map.reserve(mask.size());
  for (const std::uint32_t index : mask.grid_index) map.push_back(image.values[index]);
  if (!std::all_of(map.begin(), map.end(), [](float value) { return std::isfinite(value); }))
    throw Refusal("'" + path + "' has values in the mask that are not finite.");
  return map;
}

void write_map(const std::string& path, const Mask& mask, std::span<const float> map,
               const MapHeader& header) {
  Image image;
  image.grid = mni_grid();
  image.intent_code = header.intent_code;
  image.intent_p1 = header.intent_p1;
  image.description = header.description;
  image.values.assign(image.grid.voxels(), header.outside);
  for (std::size_t n = 0; n < mask.size(); ++n) image.values[mask.grid_index[n]] = map[n];
  write_image(path, image);
}

}  // namespace kvo::images
