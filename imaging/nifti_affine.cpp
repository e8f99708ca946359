#include "imaging/nifti_affine.h"

#include <Eigen/Geometry>
#include <Eigen/SVD>
#include <algorithm>
#include <cmath>

Eigen::Matrix4d nifti_sform(const Nifti_header& h) {
  Eigen::Matrix4d affine = Eigen::Matrix4d::Identity();
  for (int column = 0; column < 4; ++column)
    affine.col(column).head<3>() << h.srow_x[column], h.srow_y[column], h.srow_z[column];
  return affine;
}

std::optional<Eigen::Matrix4d> nifti_qform(const Nifti_header& h) {
  const Eigen::Vector3d bcd(h.quatern_b, h.quatern_c, h.quatern_d);
  if (!(bcd.squaredNorm() < 1.01)) return std::nullopt;
  const double a = std::sqrt(std::max(0.0, 1 - bcd.squaredNorm()));
  const double qfac = h.pixdim[0] < 0 ? -1 : 1;
  Eigen::Matrix4d affine = Eigen::Matrix4d::Identity();
  affine.topLeftCorner<3, 3>() =
      Eigen::Quaterniond(a, bcd.x(), bcd.y(), bcd.z()).normalized().toRotationMatrix() *
      Eigen::DiagonalMatrix<double, 3>(h.pixdim[1], h.pixdim[2], qfac * h.pixdim[3]);
  affine.topRightCorner<3, 1>() << h.qoffset_x, h.qoffset_y, h.qoffset_z;
  return affine;
}

Eigen::Matrix4d nifti_centred_affine(const Nifti_header& h) {
  Eigen::Matrix4d affine = Eigen::Matrix4d::Identity();
  for (int axis = 0; axis < 3; ++axis) {
    const double size = std::abs(h.pixdim[1 + axis]);
    affine(axis, axis) = size;
    affine(axis, 3) = -size * (h.dim[1 + axis] - 1) / 2;
  }
  return affine;
}

void nifti_set_sform(Nifti_header& h, const Eigen::Matrix4d& affine) {
  for (int column = 0; column < 4; ++column) {
    h.srow_x[column] = static_cast<float>(affine(0, column));
    h.srow_y[column] = static_cast<float>(affine(1, column));
    h.srow_z[column] = static_cast<float>(affine(2, column));
  }
}

void nifti_set_qform(Nifti_header& h, const Eigen::Matrix4d& affine) {
  Eigen::Matrix3d rotation = affine.topLeftCorner<3, 3>();
  for (int column = 0; column < 3; ++column)
    h.pixdim[1 + column] = static_cast<float>(rotation.col(column).norm());
  rotation.colwise().normalize();
  h.pixdim[0] = 1;
  if (rotation.determinant() < 0) {
    h.pixdim[0] = -1;
    rotation.col(2) *= -1;
  }
  if (!rotation.isUnitary(1e-6)) {
    const Eigen::JacobiSVD<Eigen::Matrix3d> svd(rotation,
                                                Eigen::ComputeFullU | Eigen::ComputeFullV);
    rotation = svd.matrixU() * svd.matrixV().transpose();
  }
  Eigen::Quaterniond quaternion(rotation);
  if (quaternion.w() < 0) quaternion.coeffs() *= -1;
  h.quatern_b = static_cast<float>(quaternion.x());
  h.quatern_c = static_cast<float>(quaternion.y());
  h.quatern_d = static_cast<float>(quaternion.z());
  h.qoffset_x = static_cast<float>(affine(0, 3));
  h.qoffset_y = static_cast<float>(affine(1, 3));
  h.qoffset_z = static_cast<float>(affine(2, 3));
}

bool nifti_places_voxels(const Eigen::Matrix4d& affine) {
  const Eigen::Matrix3d axes = affine.topLeftCorner<3, 3>();
  const Eigen::RowVector3d lengths = axes.colwise().norm();
  return affine.allFinite() && lengths.minCoeff() > 1e-4 && lengths.maxCoeff() < 1e4 &&
         std::abs(axes.determinant()) > 1e-3 * lengths.prod();
}
