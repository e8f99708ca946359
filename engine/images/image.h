#pragma once

// Reading and writing of single-volume NIfTI-1 images, and the one grid that all results have.

#include <Eigen/Core>
#include <array>
#include <cstddef>
#include <string>
#include <vector>

#include "engine/images/images_layer.h"

namespace kvo::images {

/// NIfTI codes of the coordinate space that an image's voxels are placed in.
enum class Space { unknown = 0, talairach = 3, mni = 4 };

/// A regular grid of voxels and its place in the head.
struct Grid {
  std::array<int, 3> size{};  ///< voxels along i, j, k; i runs fastest in memory
  Eigen::Matrix4d to_mm = Eigen::Matrix4d::Identity();  ///< voxel index (i, j, k, 1) to mm

  [[nodiscard]] std::size_t voxels() const {
    return std::size_t(size[0]) * std::size_t(size[1]) * std::size_t(size[2]);
  }
  [[nodiscard]] std::size_t index(int i, int j, int k) const {
    return (std::size_t(k) * std::size_t(size[1]) + std::size_t(j)) * std::size_t(size[0]) +
           std::size_t(i);
  }
  bool operator==(const Grid& other) const {
    return size == other.size && (to_mm - other.to_mm).cwiseAbs().maxCoeff() < 1e-4;
  }
};

/// The grid of every image that the system writes: MNI space, 2 mm, 91 x 109 x 91, voxel (0, 0, 0)
/// at (-90, -126, -72) mm, i to the right, j to the front, k up.
const Grid& mni_grid();
/// The edge of its voxels in mm.
inline constexpr double voxel_mm = 2;

/// How clearly a header says where the voxels are.
struct Placement {
  /// The NIfTI code of the transform that is followed; 0 when there is none, but only the numbers
  /// and sizes of the voxels, which are those of a standard grid of MNI space.
  int code = 0;
  /// sform and qform take each other's left for right.
  bool mirrored = false;
  /// The farthest in mm that sform and qform place a corner of the image apart, when both claim to
  /// place it in a space of a standard brain or in the same one.
  double apart_mm = 0;
};

struct Image {
  Grid grid;
  Space space = Space::mni;
  Placement placement;
  int intent_code = 0;        ///< NIfTI intent: 0 none, 3 t statistic, 5 z score
  float intent_p1 = 0;        ///< first intent parameter: degrees of freedom of a t statistic
  std::string description;    ///< "descrip" of the header; cut at 79 bytes when written
  std::vector<float> values;  ///< grid.voxels() values, scaled by the header's slope and intercept
};

/// Reads a ".nii" or ".nii.gz" file of either byte order and of the integer or floating-point
/// types, of any unit of length. The sform says where the voxels are, else the qform; with voxel
/// sizes alone the image must have a standard grid of MNI space, whose axes run to the right, the
/// front and up. The voxels are turned so that i runs to the right, j to the front and k up. Throws
/// Refusal, naming the file, when it cannot be opened, is not a NIfTI-1 image, does not place its
/// voxels, holds more than one volume or values of more than 1 GiB, or ends early.
Image read_image(const std::string& path);

/// The description in the header of such a file, as read_image() would give it. Throws Refusal when
/// the header is none of an image that read_image() reads.
std::string read_description(const std::string& path);
/// The space that the header names, likewise.
Space read_space(const std::string& path);

/// Writes a 32-bit float image (gzip when the path ends with ".gz"). The same image always gives
/// the same bytes. They may still have to reach the disk: whoever renames the file flushes it
/// first. Throws Refusal, naming the file, when the disk refuses; a file begun by then is left for
/// the caller, who writes below a temporary name.
void write_image(const std::string& path, const Image& image);

}  // namespace kvo::images
