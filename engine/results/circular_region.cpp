#include "engine/results/circular_region.h"

#include <algorithm>
#include <filesystem>
#include <vector>

#include "engine/base/refusal.h"
#include "engine/images/image.h"
#include "engine/maps/folder_maps.h"
#include "workspace/files/file_names.h"

namespace kvo::results {

namespace {

/// Whether this system has made the image, itself or before it was copied, by a command that keeps
/// the voxels with large effects.
bool keeps_large_effects(const std::string& path) {
  if (!written_by_this_system(path)) return false;
  const std::string description = read_description(path);
  // The command as far as the header has room for it. A name before it ends with " =".
  const std::size_t verb = description.find(' ', description.find(' ') + 1);
  if (verb == std::string::npos) return false;
  const std::string command = description.substr(verb + 1);
  return (command.starts_with("threshold ") && !command.starts_with("threshold = ")) ||
         (command.starts_with("multi ") && !command.starts_with("multi = "));
}

/// Whether the map of z values keeps all of the voxels. A conjunction also leaves a map of its p.
bool keeps(const std::string& path, const Mask& voxels) {
  try {
    const Image image = read_on_mni_grid(path);
    return image.intent_code == z_map.intent_code &&
           std::all_of(voxels.grid_index.begin(), voxels.grid_index.end(),
                       [&](std::uint32_t index) { return image.values[index] != 0; });
  } catch (const Refusal&) {
    return false;
  }
}

}  // namespace

std::string circularity_of(const Mask& voxels, const std::string& mask_path) {
  const std::string consequence =
      ", so that g is too large here, and neither its interval nor its p is a test";
  if (keeps_large_effects(mask_path))
    return "the mask is a thresholded map, whose voxels the studies' own effects have chosen" +
           consequence;
  std::error_code ignored;
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(".", ignored))
    names.push_back(entry.path().filename());
  std::sort(names.begin(), names.end());
  for (const std::string& name : names)
    if (name.ends_with(KVO_IMAGE_SUFFIX) && keeps_large_effects(name) && keeps(name, voxels))
      return "all of these voxels are among those of the thresholded map '" + name +
             "', which the studies' own effects have chosen" + consequence +
             ", unless the region was chosen without looking at it";
  return "";
}

}  // namespace kvo::results
