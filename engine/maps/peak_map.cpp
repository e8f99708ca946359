#include "engine/maps/peak_map.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "engine/images/gaussian.h"

namespace kvo::maps {

namespace {

PlacedPeak placed(const Peak& peak, double sigma, int reach) {
  PlacedPeak result{};
  result.g = peak.g;
  std::array<int, 3> voxel{};
  for (int axis = 0; axis < 3; ++axis) {
    const auto a = std::size_t(axis);
    const double position = (peak.mm[axis] - mni_grid().to_mm(axis, 3)) / voxel_mm;
    voxel[a] = int(std::lround(position));
    result.offset[a] = (position - voxel[a]) * voxel_mm;
    for (int step = -reach; step <= reach; ++step) {
      const double distance = step * voxel_mm - result.offset[a];
      result.factors[a].push_back(gaussian(distance, sigma));
    }
  }
  result.voxel = {voxel[0], voxel[1], voxel[2]};
  for (const double factor : result.factors[0]) result.squared_x_factors.push_back(factor * factor);
  return result;
}

}  // namespace

double kernel_radius(double fwhm_mm) {
  return radius_in_sigmas * sigma_of_fwhm(fwhm_mm);
}

PeakMap::PeakMap(double fwhm_mm, const std::vector<Peak>& peaks)
    : radius_(kernel_radius(fwhm_mm)), reach_(int(radius_ / voxel_mm) + 1) {
  for (const Peak& peak : peaks) peaks_.push_back(placed(peak, sigma_of_fwhm(fwhm_mm), reach_));
}

PeakMap::Plane::Plane() : kernels(mni_grid().plane()), effects(kernels.size()) {}

/// Calls row(j, first, last, y-and-z factor) for the voxels first <= i <= last of each row of slice
/// k that the kernel reaches around that voxel.
template <typename Row>
void PeakMap::for_each_row(const PlacedPeak& peak, Voxel voxel, int k, const Row& row) const {
  const auto [nx, ny, nz] = mni_grid().size;
  if (std::abs(k - voxel.k) > reach_) return;
  const double dz = (k - voxel.k) * voxel_mm - peak.offset[2];
  const double z_factor = peak.factors[2].at(unsigned(k - voxel.k + reach_));
  for (int j = std::max(0, voxel.j - reach_); j <= std::min(ny - 1, voxel.j + reach_); ++j) {
    const double dy = (j - voxel.j) * voxel_mm - peak.offset[1];
    const double left = radius_ * radius_ - dz * dz - dy * dy;
    if (left < 0) continue;
    const double half = std::sqrt(left);
    const int first = voxel.i + int(std::ceil((peak.offset[0] - half) / voxel_mm));
    const int last = voxel.i + int(std::floor((peak.offset[0] + half) / voxel_mm));
    row(j, std::max(first, 0), std::min(last, nx - 1),
        z_factor * peak.factors[1].at(unsigned(j - voxel.j + reach_)));
  }
}

void PeakMap::effects(const std::vector<Voxel>& voxels, int k, const Mask& mask, Plane& plane,
                      float* g) const {
  const int nx = mni_grid().size[0];
  int first_row = mni_grid().size[1], last_row = -1;
  for (std::size_t p = 0; p < peaks_.size(); ++p) {
    const PlacedPeak& peak = peaks_[p];
    const Voxel at = voxels[p];
    for_each_row(peak, at, k, [&](int j, int first, int last, double factor) {
      double* __restrict kernels = plane.kernels.data() + j * nx;
      double* __restrict effects = plane.effects.data() + j * nx;
      const double* __restrict x_factors = peak.factors[0].data() + (reach_ - at.i);
      const double* __restrict squares = peak.squared_x_factors.data() + (reach_ - at.i);
      const double effect_factor = factor * factor * peak.g;
      for (int i = first; i <= last; ++i) {
        kernels[i] += factor * x_factors[i];
        effects[i] += effect_factor * squares[i];
      }
      first_row = std::min(first_row, j);
      last_row = std::max(last_row, j);
    });
  }
  const std::size_t begin = mask.slice_begin[std::size_t(k)];
  const std::size_t end = mask.slice_begin[std::size_t(k) + 1];
  if (last_row < 0) {
    std::fill(g, g + (end - begin), 0.0F);
    return;
  }
  const std::uint32_t* indices = mask.grid_index.data() + begin;
  const auto plane_start = std::uint32_t(std::size_t(k) * plane.kernels.size());
  for (std::size_t n = 0; n < end - begin; ++n) {
    const std::uint32_t at = indices[n] - plane_start;
    const double kernels = plane.kernels[at];
    // Where the sum of kernels is 0, that of the effects is 0 too.
    g[n] = float(plane.effects[at] / (kernels == 0 ? 1 : kernels));
  }
  for (std::vector<double>* sums : {&plane.kernels, &plane.effects})
    std::fill(sums->begin() + first_row * nx, sums->begin() + (last_row + 1) * nx, 0.0);
}

bool PeakMap::reaches(const PlacedPeak& peak, const Mask& mask) const {
  bool found = false;
  for (int k = 0; k < int(mask.slices()) && !found; ++k)
    for_each_row(peak, peak.voxel, k, [&](int j, int first, int last, double) {
      for (int i = first; i <= last; ++i) found = found || mask.inside[mni_grid().index(i, j, k)];
    });
  return found;
}

}  // namespace kvo::maps
