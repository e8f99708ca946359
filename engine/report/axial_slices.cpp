#include <algorithm>
#include <cmath>

#include "engine/base/wording.h"
#include "engine/report/brain_box.h"
#include "engine/report/brain_picture.h"
#include "engine/report/canvas.h"
#include "engine/report/colour_scale.h"
#include "engine/report/voxel_plane.h"

namespace kvo::report {

namespace {

constexpr int sheet_width = 720, margin = 8, label_height = 16;
constexpr int slices_in_row = 6, most_slices = 36;
constexpr Rgb ground{0, 0, 0}, text_colour{0.88, 0.88, 0.88}, side_colour{0.65, 0.65, 0.65};
constexpr double side_space = 14;
// The brightest tissue stays darker than the brightest colours.
constexpr float brightest = 0.72F;

struct Levels {
  int first, step, count;
};

/// Levels k from below the lowest to above the highest: as close to one another as their number
/// allows, in whole rows where the brain has as many.
Levels levels_of(int lowest, int highest, int last_of_grid) {
  const int step = (highest - lowest + most_slices) / most_slices;
  int count = (highest - lowest) / step + 1;
  const int fill = (slices_in_row - count % slices_in_row) % slices_in_row;
  int first = lowest - fill / 2 * step;
  count += fill;
  first = std::max(first, std::min(0, last_of_grid));
  while (first + (count - 1) * step > last_of_grid && first >= step) first -= step;
  while (first + (count - 1) * step > last_of_grid && count > 1) --count;
  return {first, step, count};
}

/// Brightness of tissue by its share of the brightest: what is dark, darker, for contrast.
float brightness(float share) {
  constexpr float black = 0.12F;
  const float stretched = (std::clamp(share, 0.0F, 1.0F) - black) / (1 - black);
  return std::max(0.04F, std::pow(std::max(stretched, 0.0F), 1.6F) * brightest);
}

VoxelPlane plane_of(int k, const BrainBox& box, const BrainMap& map,
                    const BrainBackground& background, float white) {
  const Grid& grid = mni_grid();
  VoxelPlane plane(box.size(0), box.size(1));
  for (int row = 0; row < plane.rows; ++row)
    for (int column = 0; column < plane.columns; ++column) {
      const std::size_t voxel = grid.index(box.low[0] + column, box.high[1] - row, k);
      const bool brain = background.brain.empty() || background.brain[voxel] > 0;
      if (!background.anatomy.empty() && brain)
        plane.grey[plane.at(column, row)] = brightness(background.anatomy[voxel] / white);
      else if (!background.brain.empty() && brain)
        plane.grey[plane.at(column, row)] = brightest / 3;
      const float z = map.z[voxel];
      plane.z[plane.at(column, row)] = std::isfinite(z) ? z : 0;
    }
  return plane;
}

/// The value that is drawn brightest: only one in a hundred of the brain's voxels is above it.
float white_of(const BrainBackground& background) {
  std::vector<float> values;
  for (std::size_t voxel = 0; voxel < background.anatomy.size(); ++voxel)
    if (background.anatomy[voxel] > 0 && (background.brain.empty() || background.brain[voxel] > 0))
      values.push_back(background.anatomy[voxel]);
  if (values.empty()) return 1;
  const auto place = values.begin() + std::ptrdiff_t(values.size() * 99 / 100);
  std::nth_element(values.begin(), place, values.end());
  return *place;
}

std::string mm_text(int k) {
  return decimal_text(mni_grid().to_mm(2, 2) * k + mni_grid().to_mm(2, 3), 0);
}

}  // namespace

Picture axial_slices(const BrainMap& map, const BrainBackground& background) {
  const ColourScale scale(map.z);
  const BrainBox found = box_of_map(map.z), brain = brain_box(map, background);
  const BrainBox& shown = found.empty() ? brain : found;
  const Levels levels = levels_of(shown.low[2], shown.high[2], mni_grid().size[2] - 1);
  const int cell_width = (sheet_width - 2 * margin) / slices_in_row;
  const int voxel_size = std::max(1, cell_width * picture_scale / (brain.size(0) + 2));
  const int slice_height = (brain.size(1) * voxel_size + picture_scale - 1) / picture_scale;
  const int cell_height = slice_height + label_height + 4;
  const int rows = (levels.count + slices_in_row - 1) / slices_in_row;
  const bool has_bar = !found.empty();
  const Canvas canvas(sheet_width,
                      2 * margin + rows * cell_height + (has_bar ? ColourScale::bar_height : 0),
                      ground);
  const float white = white_of(background);
  for (int n = 0; n < levels.count; ++n) {
    const int k = levels.first + n * levels.step;
    const int left = margin + n % slices_in_row * cell_width;
    const int top = margin + n / slices_in_row * cell_height;
    const int slice_width = brain.size(0) * voxel_size;
    const PlanePlace place{left * picture_scale + (cell_width * picture_scale - slice_width) / 2,
                           (top + label_height) * picture_scale, voxel_size};
    draw_plane(canvas, place, plane_of(k, brain, map, background, white), scale);
    canvas.text(left + cell_width / 2.0, top + label_height / 2.0, "z = " + mm_text(k),
                {.size = 10.5, .colour = text_colour, .align = Align::centre});
    const double label = top + label_height / 2.0;
    canvas.text(left + side_space, label, "L", {.size = 10, .colour = side_colour});
    canvas.text(left + cell_width - side_space, label, "R",
                {.size = 10, .colour = side_colour, .align = Align::right});
  }
  scale.draw_bar(canvas, sheet_width / 2.0, margin + rows * cell_height, map.statistic);
  limit_greys(canvas);
  return canvas.picture("Axial slices of the brain from z = " + mm_text(levels.first) + " to " +
                        mm_text(levels.first + (levels.count - 1) * levels.step) + " mm. " +
                        scale.words(map.statistic));
}

}  // namespace kvo::report
