#include "nifti/nifti_affine.h"

#include <Eigen/Geometry>
#include <Eigen/LU>
#include <algorithm>
#include <array>
#include <cmath>
#include <span>

#include "util/q_string.h"

namespace {

/// A grid that software and templates of a space share: with i to the right, j to the front and k
/// up, the places of its first voxel in mm.
struct Standard_grid {
  std::array<int, 3> size;
  double voxel_mm;
  std::array<double, 3> first_mm;
};
constexpr Standard_grid MNI_GRIDS[] = {
    {{91, 109, 91}, 2, {-90, -126, -72}},      // the 2 mm template of most software
    {{181, 217, 181}, 1, {-90, -126, -72}},    // the 1 mm template of 1998
    {{182, 218, 182}, 1, {-91, -126, -72}},    // the same with an even number of voxels
    {{121, 145, 121}, 1.5, {-90, -126, -72}},  // tissue priors, voxel-based morphometry
    {{113, 137, 113}, 1.5, {-84, -120, -72}},  // the same, cut closer
    {{193, 229, 193}, 1, {-96, -132, -78}},    // the 1 mm template of 2009
    {{197, 233, 189}, 1, {-98, -134, -72}},    // the same with other margins
    {{61, 73, 61}, 3, {-90, -126, -72}},       // the field of the 2 mm template in 3 mm
    {{79, 95, 79}, 2, {-78, -112, -70}},       // a common bounding box of normalised images
    {{79, 95, 68}, 2, {-78, -112, -50}},       // an older one
    {{53, 63, 46}, 3, {-78, -112, -50}},       // the older one in 3 mm
};
constexpr Standard_grid TALAIRACH_GRIDS[] = {
    {{161, 191, 151}, 1, {-80, -110, -65}},  // the box of the atlas
};
/// Relative tolerance for rounded voxel sizes.
constexpr double ROUNDING = 1e-4;
/// When the search for a rotation ends.
constexpr int MOST_ROUNDS = 100;
constexpr double STILL = 1e-14;

std::array<double, 3> voxel_sizes_mm(const Nifti_header& h) {
  const double mm = nifti_mm_per_unit(h);
  std::array<double, 3> sizes{};
  for (std::size_t axis = 0; axis < 3; ++axis)
    sizes[axis] = mm * std::abs(static_cast<double>(h.pixdim[1 + axis]));
  return sizes;
}

bool has_grid(const Nifti_header& h, const Standard_grid& grid) {
  const std::array<double, 3> sizes = voxel_sizes_mm(h);
  for (std::size_t axis = 0; axis < 3; ++axis)
    if (h.dim[1 + axis] != grid.size[axis] ||
        !(std::abs(sizes[axis] - grid.voxel_mm) <= ROUNDING * grid.voxel_mm))
      return false;
  return true;
}

/// The rotation closest to a matrix with a positive determinant, by Newton's iteration for the
/// polar decomposition (Higham 1986, SIAM Journal on Scientific and Statistical Computing 7:1160).
/// It stops early where the matrix is too close to singular to be inverted.
Eigen::Matrix3d nearest_rotation(Eigen::Matrix3d matrix) {
  for (int round = 0; round < MOST_ROUNDS; ++round) {
    const Eigen::Matrix3d next = (matrix + matrix.inverse().transpose()) / 2;
    if (!next.allFinite()) break;
    const double moved = (next - matrix).norm();
    matrix = next;
    if (moved < STILL) break;
  }
  return matrix;
}

}  // namespace

Eigen::Matrix4d nifti_sform(const Nifti_header& h) {
  Eigen::Matrix4d affine = Eigen::Matrix4d::Identity();
  for (int column = 0; column < 4; ++column)
    affine.col(column).head<3>() << h.srow_x[column], h.srow_y[column], h.srow_z[column];
  affine.topRows<3>() *= nifti_mm_per_unit(h);
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
  affine.topRows<3>() *= nifti_mm_per_unit(h);
  return affine;
}

std::optional<Eigen::Matrix4d> nifti_standard_affine(const Nifti_header& h, std::int16_t space) {
  const std::span<const Standard_grid> grids =
      space == NIFTI_TALAIRACH ? std::span<const Standard_grid>(TALAIRACH_GRIDS) : MNI_GRIDS;
  const auto grid = std::find_if(grids.begin(), grids.end(),
                                 [&](const Standard_grid& each) { return has_grid(h, each); });
  if (grid == grids.end()) return std::nullopt;
  Eigen::Matrix4d affine = Eigen::Matrix4d::Identity();
  for (int axis = 0; axis < 3; ++axis) {
    affine(axis, axis) = grid->voxel_mm;
    affine(axis, 3) = grid->first_mm[static_cast<std::size_t>(axis)];
  }
  return affine;
}

std::string nifti_grid_text(const Nifti_header& h) {
  const auto [x, y, z] = voxel_sizes_mm(h);
  const std::string sizes =
      x == y && y == z ? Q_format("%g", x).str() : Q_format("%g x %g x %g", x, y, z).str();
  return Q_format("%i x %i x %i voxels of %s mm", h.dim[1], h.dim[2], h.dim[3], sizes.c_str())
      .str();
}

double nifti_mm_per_unit(const Nifti_header& h) {
  switch (h.xyzt_units & NIFTI_LENGTH_UNIT) {
    case NIFTI_METRES:
      return 1000;
    case NIFTI_MICROMETRES:
      return 0.001;
    default:
      return 1;
  }
}

void nifti_use_millimetres(Nifti_header& h) {
  const double mm = nifti_mm_per_unit(h);
  if (mm == 1) return;
  const auto convert = [mm](float& length) { length = static_cast<float>(length * mm); };
  for (int axis = 1; axis <= 3; ++axis) convert(h.pixdim[axis]);
  for (float* offset : {&h.qoffset_x, &h.qoffset_y, &h.qoffset_z}) convert(*offset);
  for (float* row : {h.srow_x, h.srow_y, h.srow_z})
    for (int column = 0; column < 4; ++column) convert(row[column]);
  h.xyzt_units = static_cast<char>((h.xyzt_units & ~NIFTI_LENGTH_UNIT) | NIFTI_MILLIMETRES);
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
  if (!rotation.isUnitary(1e-6)) rotation = nearest_rotation(rotation);
  Eigen::Quaterniond quaternion(rotation);
  if (quaternion.w() < 0) quaternion.coeffs() *= -1;
  h.quatern_b = static_cast<float>(quaternion.x());
  h.quatern_c = static_cast<float>(quaternion.y());
  h.quatern_d = static_cast<float>(quaternion.z());
  h.qoffset_x = static_cast<float>(affine(0, 3));
  h.qoffset_y = static_cast<float>(affine(1, 3));
  h.qoffset_z = static_cast<float>(affine(2, 3));
}

double nifti_farthest_apart(const Nifti_header& h, const Eigen::Matrix4d& one,
                            const Eigen::Matrix4d& other) {
  double farthest = 0;
  for (unsigned corner = 0; corner < 8; ++corner) {
    Eigen::Vector4d voxel(0, 0, 0, 1);
    for (unsigned axis = 0; axis < 3; ++axis)
      if ((corner >> axis & 1U) != 0) voxel[axis] = h.dim[1 + axis] - 1;
    farthest = std::max(farthest, ((one - other) * voxel).head<3>().norm());
  }
  return farthest;
}

bool nifti_places_voxels(const Eigen::Matrix4d& affine) {
  const Eigen::Matrix3d axes = affine.topLeftCorner<3, 3>();
  const Eigen::RowVector3d lengths = axes.colwise().norm();
  return affine.allFinite() && lengths.minCoeff() > 1e-4 && lengths.maxCoeff() < 1e4 &&
         std::abs(axes.determinant()) > 1e-3 * lengths.prod();
}
