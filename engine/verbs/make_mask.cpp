// Masks of a region: of the atlas, or around a coordinate.

#include <cmath>
#include <optional>

#include "engine/base/exists.h"
#include "engine/base/install.h"
#include "engine/base/outputs.h"
#include "engine/base/progress.h"
#include "engine/base/refusal.h"
#include "engine/base/text_file.h"
#include "engine/inference/clusters.h"
#include "engine/maps/pp_record.h"
#include "engine/results/results.h"
#include "engine/studies/study_image.h"
#include "engine/verbs/verbs.h"
#include "util/text.h"
#include "workspace/files/file_names.h"
#include "workspace/files/region_labels.h"

namespace kvo::verbs {

namespace {

constexpr double radius = 10;  // mm

/// A mask of the user's, or one that other commands would not see, must not be lost sight of.
void check_mask_name(const std::string& name) {
  const std::string file = mask_file(name);
  const auto refuse = [&](const std::string& why) {
    throw Refusal("The name '" + name + "' cannot be used: " + why);
  };
  if (entry_exists(share_path(file))) refuse("the installation has a mask of that name.");
  if (entry_exists(KVO_TABLE_FILE))
    for (const Study& study : read_study_table().studies)
      if (image_file(study) == file)
        refuse("'" + file + "' would be the image of study '" + study.name + "'.");
  if (entry_exists(file) && !written_by_this_system(file))
    refuse("there is already a '" + file +
           "' that was made elsewhere. Please choose another name.");
}

std::string region_name(int region) {
  Q_string text;
  Q_get_mni_label(text, float(region));
  return text.str();
}

/// The mask of a region of the atlas, for a name that it may have.
Mask prepare_label(const Command& command) {
  check_mask_name(command.name);
  const int region = int(command.number(1));
  const std::vector<float> atlas = read_atlas();
  std::vector<bool> inside;
  inside.reserve(atlas.size());
  for (const float value : atlas)
    inside.push_back(value >= float(region) && value < float(region + 1));
  Mask mask = mask_of(std::move(inside));
  if (mask.size() > 0) return mask;
  const bool known = region >= 1 && region <= KVO_REGIONS;
  throw Refusal("The atlas has no voxel of region " + std::to_string(region) +
                (known ? ", '" + region_name(region) + "'." : "."));
}

Mask sphere_mask(const Eigen::Vector3d& centre) {
  const Grid& grid = mni_grid();
  std::vector<bool> inside(grid.voxels());
  for (int k = 0; k < grid.size[2]; ++k)
    for (int j = 0; j < grid.size[1]; ++j)
      for (int i = 0; i < grid.size[0]; ++i) {
        const Voxel at{i, j, k};
        inside[grid.index(at)] = (grid.mm(at) - centre).squaredNorm() <= radius * radius;
      }
  return mask_of(std::move(inside));
}

/// The command's coordinate as it was given: "40, 4, 0".
std::string coordinate_text(const Command& command) {
  return command.arguments[1] + ", " + command.arguments[2] + ", " + command.arguments[3];
}

/// The mask around a coordinate, likewise.
Mask prepare_coordinate(const Command& command) {
  check_mask_name(command.name);
  Mask mask = sphere_mask({command.number(1), command.number(2), command.number(3)});
  if (mask.size() == 0)
    throw Refusal("The coordinate " + coordinate_text(command) +
                  " lies outside of the images: no voxel is within 10 mm of it.");
  return mask;
}

void say_outside_brain(const Mask& mask) {
  const std::string path = share_path(mask_file(brain_mask));
  if (!entry_exists(path)) return;
  const Mask brain = read_mask(path);
  std::size_t outside = 0;
  for (const std::uint32_t index : mask.grid_index)
    if (!brain.inside[index]) ++outside;
  if (outside == mask.size())
    say("None of them lies in the brain");
  else if (outside > 0)
    say(Q_counted(outside, "of them lies", "of them lie") + " outside of the brain");
}

/// The checksum of the mask when it is the one that the maps were made in; nothing otherwise.
std::optional<std::string> recorded_checksum(const std::string& name) {
  if (!entry_exists(KVO_RECORD_FILE)) return std::nullopt;
  try {
    const PpRecord record = read_pp_record();
    const auto found = record.checksums.find(mask_file(name));
    if (record.mask == name && found != record.checksums.end()) return found->second;
  } catch (const Refusal&) {
    // Whether the maps are fit for use is for the analyses to say.
  }
  return std::nullopt;
}

void write_mask(const Command& command, const Mask& mask) {
  const std::optional<std::string> recorded = recorded_checksum(command.name);
  Outputs outputs;
  const std::string file = mask_file(command.name), path = outputs.path_of(file);
  write_map(path, mask, std::vector<float>(mask.size(), 1),
            {.description = image_description(command.text())});
  const bool changed = recorded && *recorded != file_checksum(path);
  outputs.commit();
  say("Mask: " + file);
  if (changed)
    say("The maps of the studies were made in the earlier mask '" + command.name +
        "': please run preprocessing again");
}

}  // namespace

void check_mask_label(const Command& command) {
  prepare_label(command);
}

void run_mask_label(const Command& command) {
  const Mask mask = prepare_label(command);
  say(region_name(int(command.number(1))) + ": " + Q_counted(mask.size(), "voxel", "voxels"));
  write_mask(command, mask);
}

void check_mask_coordinate(const Command& command) {
  prepare_coordinate(command);
}

void run_mask_coordinate(const Command& command) {
  const Mask mask = prepare_coordinate(command);
  say("10 mm around " + coordinate_text(command) + ": " +
      Q_counted(mask.size(), "voxel", "voxels"));
  say_outside_brain(mask);
  write_mask(command, mask);
}

}  // namespace kvo::verbs
