#pragma once

// Reading of NIfTI-1 images: ".nii", ".nii.gz" and ".hdr" with ".img", in either byte order. Needs
// no window and ends no process. Nothing in a file is trusted before it is checked: memory is
// allocated by how much data is really there, not by what the header claims.

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <variant>
#include <vector>

#include "nifti/nifti_header.h"
#include "util/handles.h"

enum class Nifti_problem {
  not_found,    ///< there is no such file, or it cannot be opened
  not_regular,  ///< it is a folder, a named pipe or a device
  not_nifti,    ///< what is there is no header of this format
  wrong_size,   ///< the sizes in the header cannot be true
  too_many,     ///< more volumes than the caller has room for
  wrong_type,   ///< values of a type or with a scaling that is not read
  ends_early,   ///< fewer values than the header promises, or damaged ones
  memory,       ///< the values do not fit into the memory
  not_writable  ///< the disk did not take what was written
};

/// Why an image was refused, also as a sentence without its full stop that names the file.
struct Nifti_error {
  Nifti_problem problem;
  std::string message;
};

template <typename T>
using Nifti_result = std::variant<T, Nifti_error>;

/// The kind of file that an image is stored in; the image wizard uses the same numbers.
enum class Nifti_kind { compressed = 1, single_file = 2, pair = 3 };

/// The values of one volume, first index fastest.
using Nifti_volume = std::unique_ptr<float[], Q_call<std::free>>;

struct Nifti_options {
  /// The most volumes that the caller has room for.
  std::int64_t max_volumes = INT32_MAX;
  /// The most bytes that all volumes together may take; by default all memory of the machine.
  std::uint64_t max_bytes = 0;
  /// Take all types of whole and floating-point numbers instead of the four basic ones: 8-bit
  /// unsigned, 16-bit and 32-bit signed, 32-bit floating point.
  bool all_types = false;
};

/// What the header says, checked and in the machine's byte order, before anything is converted.
struct Nifti_info {
  Nifti_header header{};
  Nifti_kind kind = Nifti_kind::compressed;
  bool other_order = false;  ///< the file has the other byte order than the machine
  std::string path;          ///< of the file that was opened; for a pair that of the header
  std::int32_t voxels_per_volume = 0;
  std::int32_t n_volumes = 0;
};

/// An image with its values as 32-bit floats: `datatype` and `bitpix` say so, and where scaling has
/// been applied `scl_slope` is 1 and `scl_inter` 0.
struct Nifti_image : Nifti_info {
  std::vector<Nifti_volume> volumes;

  [[nodiscard]] std::span<const float> values(std::size_t volume) const {
    return {volumes[volume].get(), static_cast<std::size_t>(voxels_per_volume)};
  }
};

/// The file that a path refers to: the path itself when it ends with ".nii.gz", ".nii" or ".hdr",
/// otherwise the path plus the first of these extensions for which a file exists. Nothing when
/// there is no such file.
std::optional<std::string> nifti_find_file(const std::string& path);

/// Reads what the header says; of a pair only the header file is opened.
Nifti_result<Nifti_info> nifti_read_info(const std::string& path);

/// Reads an image with all its volumes. A `scl_slope` of 0, or one that is no number, means
/// unscaled values.
Nifti_result<Nifti_image> nifti_read(const std::string& path, const Nifti_options& options = {});
