#pragma once

// The voxels that an analysis covers.

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "engine/images/image.h"
#include "engine/images/images_layer.h"

namespace kvo::images {

/// The voxels of a mask in the order of the MNI grid, so that those of a slice (one k) are
/// contiguous. A map in memory has one value for each of them.
struct Mask {
  std::vector<std::uint32_t> grid_index;
  std::vector<std::size_t> slice_begin;  ///< first voxel of each k, and the end of the last
  std::vector<bool> inside;              ///< for each voxel of the grid

  [[nodiscard]] std::size_t size() const { return grid_index.size(); }
  [[nodiscard]] std::size_t slices() const { return slice_begin.size() - 1; }
  [[nodiscard]] Voxel voxel(std::size_t n) const;
};

/// The path of the mask of that name, in the installation or else in the working folder. Throws
/// Refusal when neither has one.
std::string mask_path(const std::string& name);

/// The mask of the whole brain.
inline constexpr const char* brain_mask = "brain";

/// The file name of a mask.
std::string mask_file(const std::string& name);

/// The path of a mask, looking in the working folder first: for masks that the user makes there,
/// such as regions. Throws Refusal likewise.
std::string own_mask_path(const std::string& name);

/// The path of the correlation template of that name, found as mask_path() finds a mask.
std::string template_path(const std::string& name);
/// Its file name, by which records refer to it wherever it is.
std::string template_file(const std::string& name);

/// Reads an image. Throws Refusal, naming the file, when it is not on the MNI grid.
Image read_on_mni_grid(const std::string& path);

/// Reads a mask: the voxels that are above 0. Throws Refusal when the image is not on the MNI grid
/// or has no such voxel.
Mask read_mask(const std::string& path);

/// The mask of the given voxels of the grid; there may be none.
Mask mask_of(std::vector<bool> inside);

/// The values of an image on the MNI grid in the voxels of the mask. Throws Refusal, naming the
/// file, when it is on another grid or a value in the mask is not finite.
std::vector<float> read_map(const std::string& path, const Mask& mask);

/// What the header of a map's image says.
struct MapHeader {
  std::string description;
  int intent_code = 0;  ///< of NIfTI
  float intent_p1 = 0;
  float outside = 0;  ///< the value outside the mask
};

/// Writes a map as an image. Throws Refusal as write_image() does.
void write_map(const std::string& path, const Mask& mask, std::span<const float> map,
               const MapHeader& header);

}  // namespace kvo::images
