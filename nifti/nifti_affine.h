#pragma once

// Where a header places its voxels: matrices that take a voxel index (i, j, k, 1) to millimetres,
// whatever unit of length the header has.

#include <Eigen/Core>
#include <cstdint>
#include <optional>
#include <string>

#include "nifti/nifti_header.h"

/// The affine of `srow_x`, `srow_y` and `srow_z`.
Eigen::Matrix4d nifti_sform(const Nifti_header& header);

/// The affine of the quaternion, the voxel sizes and the offset. Nothing when the quaternion is
/// invalid.
std::optional<Eigen::Matrix4d> nifti_qform(const Nifti_header& header);

/// The affine of a header that has only voxel sizes (`pixdim`), when these and the dimensions match
/// a standard grid of the space (NIFTI_MNI or NIFTI_TALAIRACH); nothing otherwise. Such a header
/// does not say which side is left: i is taken to run to the right, j to the front and k up. An
/// image that was stored from right to left comes out mirrored, so whoever uses this must tell the
/// user.
std::optional<Eigen::Matrix4d> nifti_standard_affine(const Nifti_header& header,
                                                     std::int16_t space);

/// The dimensions and voxel sizes: "91 x 109 x 91 voxels of 2 mm", "4 x 4 x 4 voxels of 2 x 3 x 4
/// mm".
std::string nifti_grid_text(const Nifti_header& header);

/// How many mm a unit of length of the header is. An unknown unit is taken for mm.
double nifti_mm_per_unit(const Nifti_header& header);
/// Converts all lengths in the header to mm, if they had another unit, and sets the unit
/// accordingly.
void nifti_use_millimetres(Nifti_header& header);

// Both store mm, and are for headers that have no other unit.

/// Stores an affine in `srow_x`, `srow_y` and `srow_z`.
void nifti_set_sform(Nifti_header& header, const Eigen::Matrix4d& affine);

/// Stores an affine as quaternion, voxel sizes (`pixdim`) and offset. A sheared affine has no
/// quaternion; the closest rotation is stored for it.
void nifti_set_qform(Nifti_header& header, const Eigen::Matrix4d& affine);

/// The largest distance in mm between the places where two affines put the same corner of the
/// image.
double nifti_farthest_apart(const Nifti_header& header, const Eigen::Matrix4d& one,
                            const Eigen::Matrix4d& other);

/// Whether the affine is finite and invertible and gives the voxels a sensible size.
bool nifti_places_voxels(const Eigen::Matrix4d& affine);
