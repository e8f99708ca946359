#include "resources/share/volume.h"

#include <Eigen/Eigenvalues>
#include <Eigen/LU>
#include <algorithm>
#include <cmath>
#include <utility>

namespace kvo::share {

namespace {

constexpr std::array<double, 4> point_offsets_mm{-0.75, -0.25, 0.25, 0.75};
using Voxel = std::array<int, 3>;

bool inside(const Grid& grid, const Voxel& v) {
  for (std::size_t d = 0; d < 3; ++d)
    if (v[d] < 0 || v[d] >= grid.size[d]) return false;
  return true;
}

float value_at(const Grid& grid, const std::vector<float>& values, const Voxel& v) {
  return inside(grid, v) ? values[grid.index(v[0], v[1], v[2])] : 0.0F;
}

/// The largest whole number that is not above it; std::floor is a call for most processors.
int whole_below(double x) {
  const int whole = int(x);
  return whole - int(double(whole) > x);
}

float nearest_value(const Grid& grid, const std::vector<float>& values, const Eigen::Vector3d& at) {
  const auto round_half_up = [](double x) { return whole_below(x + 0.5); };
  return value_at(grid, values,
                  {round_half_up(at.x()), round_half_up(at.y()), round_half_up(at.z())});
}

float trilinear_value(const Grid& grid, const std::vector<float>& values,
                      const Eigen::Vector3d& at) {
  const Voxel low{whole_below(at.x()), whole_below(at.y()), whole_below(at.z())};
  std::array<std::array<double, 2>, 3> weights{};
  for (int d = 0; d < 3; ++d) {
    const double part = at[d] - low[std::size_t(d)];
    weights[std::size_t(d)] = {1 - part, part};
  }
  double sum = 0;
  for (const int k : {0, 1})
    for (const int j : {0, 1})
      for (const int i : {0, 1}) {
        const double weight =
            weights[0][std::size_t(i)] * weights[1][std::size_t(j)] * weights[2][std::size_t(k)];
        if (weight > 0)
          sum += weight * double(value_at(grid, values, {low[0] + i, low[1] + j, low[2] + k}));
      }
  return float(sum);
}

/// Calls visit(voxel, index) for every voxel of the common grid, i fastest.
template <typename Visit>
void for_each_voxel(Visit visit) {
  const Grid& grid = mni_grid();
  for (int k = 0; k < grid.size[2]; ++k)
    for (int j = 0; j < grid.size[1]; ++j)
      for (int i = 0; i < grid.size[0]; ++i) visit(Voxel{i, j, k}, grid.index(i, j, k));
}

Voxel voxel_of(std::size_t index) {
  const Grid& grid = mni_grid();
  const std::size_t nx = std::size_t(grid.size[0]);
  const std::size_t ny = std::size_t(grid.size[1]);
  return {int(index % nx), int(index / nx % ny), int(index / nx / ny)};
}

std::vector<Voxel> ball(double radius_mm) {
  const double radius = radius_mm / voxel_mm;
  const int reach = int(radius);
  std::vector<Voxel> offsets;
  for (int k = -reach; k <= reach; ++k)
    for (int j = -reach; j <= reach; ++j)
      for (int i = -reach; i <= reach; ++i)
        if (i * i + j * j + k * k <= radius * radius) offsets.push_back({i, j, k});
  return offsets;
}

/// Moves the voxels that a walk through faces reaches from `start` out of `left`; returns them.
std::vector<std::size_t> take_part(Mask& left, std::size_t start) {
  static const std::vector<Voxel> faces = ball(voxel_mm);
  const Grid& grid = mni_grid();
  std::vector<std::size_t> part{start};
  left[start] = 0;
  for (std::size_t next = 0; next < part.size(); ++next) {
    const Voxel v = voxel_of(part[next]);
    for (const Voxel& face : faces) {
      const Voxel neighbour{v[0] + face[0], v[1] + face[1], v[2] + face[2]};
      if (!inside(grid, neighbour)) continue;
      const std::size_t index = grid.index(neighbour[0], neighbour[1], neighbour[2]);
      if (left[index] == 0) continue;
      left[index] = 0;
      part.push_back(index);
    }
  }
  return part;
}

Mask inverse(Mask mask) {
  for (auto& voxel : mask) voxel = voxel == 0;
  return mask;
}

/// Second derivatives by central differences, in units of one voxel.
Eigen::Matrix3d hessian(const Volume& volume, const Voxel& v) {
  const auto at = [&](int axis_a, int step_a, int axis_b, int step_b) {
    Voxel w = v;
    w[std::size_t(axis_a)] += step_a;
    w[std::size_t(axis_b)] += step_b;
    return double(value_at(mni_grid(), volume, w));
  };
  Eigen::Matrix3d h;
  for (int a = 0; a < 3; ++a) {
    h(a, a) = at(a, 1, a, 0) + at(a, -1, a, 0) - 2 * at(a, 0, a, 0);
    for (int b = a + 1; b < 3; ++b)
      h(a, b) = h(b, a) =
          (at(a, 1, b, 1) - at(a, 1, b, -1) - at(a, -1, b, 1) + at(a, -1, b, -1)) / 4;
  }
  return h;
}

}  // namespace

Sampler::Sampler(const Image& image, Sampling sampling)
    : image_(image), sampling_(sampling), mm_to_image_(image.grid.to_mm.inverse()) {
  std::size_t n = 0;
  for (const double z : point_offsets_mm)
    for (const double y : point_offsets_mm)
      for (const double x : point_offsets_mm)
        offsets_[n++] = mm_to_image_.topLeftCorner<3, 3>() * Eigen::Vector3d(x, y, z);
}

std::array<float, points_per_voxel> Sampler::samples(std::array<int, 3> voxel) const {
  const Eigen::Vector4d mm = mni_grid().to_mm * Eigen::Vector4d(voxel[0], voxel[1], voxel[2], 1);
  const Eigen::Vector3d centre = (mm_to_image_ * mm).head<3>();
  std::array<float, points_per_voxel> samples{};
  for (std::size_t n = 0; n < samples.size(); ++n) {
    const Eigen::Vector3d at = centre + offsets_[n];
    samples[n] = sampling_ == Sampling::nearest ? nearest_value(image_.grid, image_.values, at)
                                                : trilinear_value(image_.grid, image_.values, at);
  }
  return samples;
}

Mask at_least(const Volume& volume, float threshold) {
  Mask mask(volume.size());
  std::transform(volume.begin(), volume.end(), mask.begin(),
                 [threshold](float value) { return std::uint8_t(value >= threshold); });
  return mask;
}

Volume to_volume(const Mask& mask) {
  return {mask.begin(), mask.end()};
}

std::size_t count(const Mask& mask) {
  return std::size_t(std::count(mask.begin(), mask.end(), std::uint8_t(1)));
}

Volume smooth(const Volume& volume, double fwhm_mm) {
  const double sigma = fwhm_mm / voxel_mm / std::sqrt(8 * std::log(2.0));
  const int reach = int(std::ceil(4 * sigma));
  std::vector<double> kernel;
  double sum = 0;
  for (int step = -reach; step <= reach; ++step) {
    kernel.push_back(std::exp(-0.5 * step * step / (sigma * sigma)));
    sum += kernel.back();
  }
  for (double& weight : kernel) weight /= sum;

  Volume smoothed = volume;
  for (std::size_t axis = 0; axis < 3; ++axis) {
    const Volume before = std::exchange(smoothed, Volume(volume.size()));
    for_each_voxel([&](Voxel v, std::size_t index) {
      v[axis] -= reach;
      double value = 0;
      for (const double weight : kernel) {
        value += weight * double(value_at(mni_grid(), before, v));
        ++v[axis];
      }
      smoothed[index] = float(value);
    });
  }
  return smoothed;
}

Mask dilate(const Mask& mask, double radius_mm) {
  const std::vector<Voxel> offsets = ball(radius_mm);
  const Grid& grid = mni_grid();
  Mask dilated(mask.size(), 0);
  for_each_voxel([&](const Voxel& v, std::size_t index) {
    if (mask[index] == 0) return;
    for (const Voxel& offset : offsets) {
      const Voxel w{v[0] + offset[0], v[1] + offset[1], v[2] + offset[2]};
      if (inside(grid, w)) dilated[grid.index(w[0], w[1], w[2])] = 1;
    }
  });
  return dilated;
}

Mask erode(const Mask& mask, double radius_mm) {
  return inverse(dilate(inverse(mask), radius_mm));
}

Mask largest_part(const Mask& mask) {
  Mask left = mask;
  std::vector<std::size_t> largest;
  for (std::size_t index = 0; index < left.size(); ++index) {
    if (left[index] == 0) continue;
    std::vector<std::size_t> part = take_part(left, index);
    if (part.size() > largest.size()) largest = std::move(part);
  }
  Mask result(mask.size(), 0);
  for (const std::size_t index : largest) result[index] = 1;
  return result;
}

Mask fill_holes(const Mask& mask) {
  const Grid& grid = mni_grid();
  Mask holes = inverse(mask);
  for_each_voxel([&](const Voxel& v, std::size_t index) {
    const bool at_border = std::any_of(v.begin(), v.end(), [](int x) { return x == 0; }) ||
                           v[0] == grid.size[0] - 1 || v[1] == grid.size[1] - 1 ||
                           v[2] == grid.size[2] - 1;
    if (at_border && holes[index] != 0) take_part(holes, index);
  });
  Mask filled = mask;
  for (std::size_t index = 0; index < mask.size(); ++index) filled[index] |= holes[index];
  return filled;
}

Mask sheet_centres(const Volume& volume, const Mask& within) {
  Mask centres(volume.size(), 0);
  for_each_voxel([&](const Voxel& v, std::size_t index) {
    if (within[index] == 0) return;
    const Eigen::SelfAdjointEigenSolver<Eigen::Matrix3d> curvature(hessian(volume, v));
    if (curvature.eigenvalues()[0] >= 0) return;
    const Eigen::Vector3d across = curvature.eigenvectors().col(0);
    const Eigen::Vector3d here(v[0], v[1], v[2]);
    const float sides = std::max(trilinear_value(mni_grid(), volume, here + across),
                                 trilinear_value(mni_grid(), volume, here - across));
    centres[index] = volume[index] >= sides;
  });
  return centres;
}

}  // namespace kvo::share
