#pragma once

// Writing NIfTI-1 images as single files, and changing headers in place.

#include <functional>
#include <optional>
#include <span>
#include <string>

#include "nifti/nifti_file.h"

/// Writes an image of 32-bit floats, little-endian, to an open file: the header with the fields
/// that describe the file corrected (sizes of header and values, type, offset of the voxels,
/// scaling that is NaN, magic) and all others kept, no extensions, then the volumes. The same image
/// always gives the same bytes. False, with errno set, when the disk refuses.
[[nodiscard]] bool nifti_write_to(int file, bool compressed, const Nifti_header& header,
                                  std::span<const std::span<const float>> volumes);

/// Asked when all data are written and only the name is missing: false gives up the new file.
using Nifti_go_on = std::function<bool()>;

/// Writes an image as the file `path`, compressed when it ends with ".gz", whole or not at all.
/// Nothing on success and when `go_on` answers false.
std::optional<Nifti_error> nifti_write(const std::string& path, const Nifti_image& image,
                                       const Nifti_go_on& go_on);

/// Replaces the header of an image's file (of a pair, its header file) by what `change` makes of
/// it, given in the machine's byte order and stored in the file's own. Everything behind the header
/// keeps its bytes. Whole or not at all, as nifti_write().
std::optional<Nifti_error> nifti_rewrite_header(const std::string& path,
                                                const std::function<void(Nifti_header&)>& change,
                                                const Nifti_go_on& go_on);
