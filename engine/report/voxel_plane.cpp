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

/// What a pixel is painted with; 0 where nothing is coloured.
struct Paint {
  std::uint32_t colour = 0;
  bool is_negative = false;
};

Paint paint_at(const std::array<Corner, 4>& corners, const VoxelPlane& plane,
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
  if (positive + negative < 0.5F) return {};
  const bool is_positive = positive >= negative;
  return {
      scale.colour(is_positive ? positive_sum / positive : negative_sum / negative, is_positive),
      !is_positive};
}

/// The pixels of a plane before they are drawn.
struct Paints {
  std::size_t columns, rows;
  std::vector<Paint> paints;

  /// Whether the pixel is not negative, but one that is near is. A rim outside leaves the smallest
  /// area its colour.
  [[nodiscard]] bool is_rim(std::size_t u, std::size_t v) const {
    constexpr std::size_t rim = picture_scale;
    if (paints[v * columns + u].is_negative) return false;
    for (std::size_t near_v = v - std::min(v, rim); near_v <= std::min(v + rim, rows - 1); ++near_v)
      for (std::size_t near_u = u - std::min(u, rim); near_u <= std::min(u + rim, columns - 1);
           ++near_u)
        if (paints[near_v * columns + near_u].is_negative) return true;
    return false;
  }
};

}  // namespace

void draw_plane(const Canvas& canvas, const PlanePlace& place, const VoxelPlane& plane,
                const ColourScale& scale) {
  const int size = place.voxel_size;
  const std::vector<Between> across = between_voxels(plane.columns, size),
                             down = between_voxels(plane.rows, size);
  Paints all{across.size(), down.size(), {}};
  const auto row_of = [&](std::size_t v) {
    return canvas.pixels() + std::ptrdiff_t(place.y + int(v)) * canvas.stride() + place.x;
  };
  for (std::size_t v = 0; v < down.size(); ++v) {
    std::uint32_t* row = row_of(v);
    for (std::size_t u = 0; u < across.size(); ++u) {
      const Between &h = across[u], &w = down[v];
      const std::array<Corner, 4> corners = {
          {{plane.at(h.first, w.first), (1 - h.share) * (1 - w.share)},
           {plane.at(h.second, w.first), h.share * (1 - w.share)},
           {plane.at(h.first, w.second), (1 - h.share) * w.share},
           {plane.at(h.second, w.second), h.share * w.share}}};
      float grey = 0;
      for (const Corner& corner : corners) grey += corner.weight * plane.grey[corner.voxel];
      const Paint paint = all.paints.emplace_back(paint_at(corners, plane, scale));
      if (paint.colour != 0)
        row[u] = paint.colour;
      else if (grey > 0)
        row[u] = grey_of(std::uint32_t(std::lround(std::min(grey, 1.0F) * 255)));
    }
  }
  if (!scale.has_negative()) return;
  for (std::size_t v = 0; v < all.rows; ++v)
    for (std::size_t u = 0; u < all.columns; ++u)
      if (all.is_rim(u, v)) row_of(v)[u] = rim_colour;
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
