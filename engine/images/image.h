#pragma once

// Reading and writing of single-volume NIfTI-1 images.

#include <string>
#include <vector>

#include "engine/images/voxel_grid.h"

namespace kvo::images {

/// NIfTI codes of the coordinate space that an image's voxels are placed in.
enum class Space { unknown = 0, talairach = 3, mni = 4 };

/// How clearly a header says where the voxels are.
struct Placement {
  /// The NIfTI code of the transform that is followed; 0 when there is none, and the number and
  /// size of the voxels match a standard grid of MNI space.
  int code = 0;
  /// sform and qform disagree about left and right.
  bool mirrored = false;
  /// The largest distance in mm between a corner placed by the sform and the same corner placed by
  /// the qform, when both claim the space of a standard brain, or the same space.
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

/// Reads a ".nii" or ".nii.gz" file of either byte order, any integer or floating-point type and
/// any unit of length. The voxels are placed by the sform, else by the qform; with neither, the
/// image must have a standard grid of MNI space, with axes running to the right, to the front and
/// up. The voxels are reoriented so that i runs to the right, j to the front and k up. Throws
/// Refusal, naming the file, when it cannot be opened, is not a NIfTI-1 image, does not place its
/// voxels, holds more than one volume or values of more than 1 GiB, or ends early.
Image read_image(const std::string& path);

/// The description in the header of such a file, as read_image() would give it. Throws Refusal when
/// the header is not that of an image that read_image() reads.
std::string read_description(const std::string& path);
/// The space that the header names, likewise.
Space read_space(const std::string& path);

/// Writes a 32-bit float image (gzip when the path ends with ".gz"). The same image always gives
/// the same bytes. They may not have reached the disk yet: whoever renames the file flushes it
/// first. Throws Refusal, naming the file, when writing fails; a partly written file is left to the
/// caller, who writes under a temporary name.
void write_image(const std::string& path, const Image& image);

}  // namespace kvo::images
