#pragma once

// Where a header places its voxels: matrices that take a voxel index (i, j, k, 1) to millimetres.

#include <Eigen/Core>
#include <optional>

#include "imaging/nifti_header.h"

/// The affine of `srow_x`, `srow_y` and `srow_z`.
Eigen::Matrix4d nifti_sform(const Nifti_header& header);

/// The affine of the quaternion, the voxel sizes and the offset. Nothing when the quaternion is
/// none.
std::optional<Eigen::Matrix4d> nifti_qform(const Nifti_header& header);

/// The affine that other software goes by when a header has voxel sizes (`pixdim`) alone: the axes
/// run right, front and up, and the middle of the image is the origin.
Eigen::Matrix4d nifti_centred_affine(const Nifti_header& header);

/// Stores an affine in `srow_x`, `srow_y` and `srow_z`.
void nifti_set_sform(Nifti_header& header, const Eigen::Matrix4d& affine);

/// Stores an affine as quaternion, voxel sizes (`pixdim`) and offset. A sheared affine has no
/// quaternion; the closest rotation is stored for it.
void nifti_set_qform(Nifti_header& header, const Eigen::Matrix4d& affine);

/// Whether the affine places voxels of a sensible size at distinct, finite points.
bool nifti_places_voxels(const Eigen::Matrix4d& affine);
