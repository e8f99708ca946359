#include "engine/report/voxel_plane.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace kvo::report {

namespace {

constexpr std::uint32_t grey_step = 3;

std::uint32_t grey_of(std::uint32_t value) {
  const std::uint32_t rounded = std::min(255U, (value + grey_step / 2) / grey_step * grey_step);
  return rounded << 16 | rounded << 8 | rounded;
}

/// The two voxels of an axis that a pixel lies between, and the share of the second.
struct Between {
  int first, second;
  float share;
};

std::vector<Between> between_voxels(int voxels, int size) {
  std::vector<Between> pixels;
  for (int pixel = 0; pixel < voxels * size; ++pixel) {
    const double at = (pixel + 0.5) / size - 0.5;
    const double floor = std::floor(at);
    pixels.push_back(
        {std::max(int(floor), 0), std::min(int(floor) + 1, voxels - 1), float(at - floor)});
  }
  return pixels;
}

struct Corner {
  std::size_t voxel;
  float weight;
};

/// The colour at the corners' place, or 0 when nothing is coloured there.
std::uint32_t colour_at(const std::array<Corner, 4>& corners, const VoxelPlane& plane,
                        const ColourScale& scale) {
  float positive = 0, negative = 0, positive_sum = 0, negative_sum = 0;
  for (const Corner& corner : corners) {
    const float z = plane.z[corner.voxel];
    if (z > 0) {
      positive += corner.weight;
      positive_sum += corner.weight * z;
    } else if (z < 0) {
      negative += corner.weight;
      negative_sum -= corner.weight * z;
    }
  }
  if (positive + negative < 0.5F) return 0;
  const bool is_positive = positive >= negative;
  return scale.colour(is_positive ? positive_sum / positive : negative_sum / negative, is_positive);
}

}  // namespace

void draw_plane(const Canvas& canvas, const PlanePlace& place, const VoxelPlane& plane,
                const ColourScale& scale) {
  const auto [x, y, size] = place;
  const std::vector<Between> across = between_voxels(plane.columns, size),
                             down = between_voxels(plane.rows, size);
  for (std::size_t v = 0; v < down.size(); ++v) {
    std::uint32_t* row = canvas.pixels() + std::ptrdiff_t(y + int(v)) * canvas.stride() + x;
    for (std::size_t u = 0; u < across.size(); ++u) {
      const Between &h = across[u], &w = down[v];
      const std::array<Corner, 4> corners = {
          {{plane.at(h.first, w.first), (1 - h.share) * (1 - w.share)},
           {plane.at(h.second, w.first), h.share * (1 - w.share)},
           {plane.at(h.first, w.second), (1 - h.share) * w.share},
           {plane.at(h.second, w.second), h.share * w.share}}};
      float grey = 0;
      for (const Corner& corner : corners) grey += corner.weight * plane.grey[corner.voxel];
      const std::uint32_t colour = colour_at(corners, plane, scale);
      if (colour != 0)
        row[u] = colour;
      else if (grey > 0)
        row[u] = grey_of(std::uint32_t(std::lround(std::min(grey, 1.0F) * 255)));
    }
  }
}

void limit_greys(const Canvas& canvas) {
  std::uint32_t* pixels = canvas.pixels();
  for (int y = 0; y < canvas.height() * picture_scale; ++y)
    for (int x = 0; x < canvas.width() * picture_scale; ++x) {
      std::uint32_t& pixel = pixels[std::ptrdiff_t(y) * canvas.stride() + x];
      const std::uint32_t value = pixel & 0xFFU;
      if ((pixel & 0xFFFFFFU) == (value << 16 | value << 8 | value)) pixel = grey_of(value);
    }
}

}  // namespace kvo::report
