#pragma once

// Reading of images where a file that cannot be read ends the program.

#include <cstdint>
#include <span>

#include "nifti/nifti_file.h"

/// The most volumes that the program takes from one file.
inline constexpr std::size_t Q_MAX_VOLUMES = 3000;

/// Reads the image of the formatted path as nifti_read() does, of the four basic types. Fills the
/// header, the number of volumes, the voxels of each and the first `n_volumes` of `volumes`.
/// Returns the kind of the file: 1 compressed, 2 single file, 3 pair. Whatever is wrong, more
/// volumes than `volumes` has room for included, is a fatal error.
[[gnu::format(printf, 5, 6)]] int Q_load_nifti(Nifti_header& header, std::int32_t& n_volumes,
                                               std::int32_t& voxels_per_volume,
                                               std::span<Nifti_volume> volumes, const char* format,
                                               ...);

/// The same for a file that must hold one volume; any other number is a fatal error.
[[gnu::format(printf, 4, 5)]] void Q_load_nifti_one_or_die(Nifti_header& header,
                                                           std::int32_t& voxels_per_volume,
                                                           Nifti_volume& volume, const char* format,
                                                           ...);
