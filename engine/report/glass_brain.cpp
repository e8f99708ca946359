#include <algorithm>
#include <array>
#include <cmath>

#include "engine/report/brain_box.h"
#include "engine/report/brain_picture.h"
#include "engine/report/canvas.h"
#include "engine/report/colour_scale.h"
#include "engine/report/voxel_plane.h"

namespace kvo::report {

namespace {

constexpr int sheet_width = 720, margin = 10, title_height = 22, space = 14;
constexpr Rgb ground{0, 0, 0}, text_colour{0.88, 0.88, 0.88}, outline_colour{0.62, 0.62, 0.62};

struct View {
  const char *title, *left, *right;
  std::size_t across, up, through;  ///< axes of the grid
};
constexpr std::array<View, 3> views = {{{"Sagittal", "P", "A", 1, 2, 0},
                                        {"Coronal", "L", "R", 0, 2, 1},
                                        {"Axial", "L", "R", 0, 1, 2}}};

/// What is seen through the glass, and how many voxels of the brain lie behind each place.
struct Projection {
  VoxelPlane plane;
  std::vector<float> thickness;
};

Projection project(const View& view, const BrainBox& box, const BrainMap& map,
                   const BrainBackground& background) {
  VoxelPlane plane(box.size(view.across), box.size(view.up));
  std::vector<float> thickness(plane.z.size());
  for (int row = 0; row < plane.rows; ++row)
    for (int column = 0; column < plane.columns; ++column) {
      std::array<int, 3> place{};
      place[view.across] = box.low[view.across] + column;
      place[view.up] = box.high[view.up] - row;
      const std::size_t at = plane.at(column, row);
      for (int n = box.low[view.through]; n <= box.high[view.through]; ++n) {
        place[view.through] = n;
        const std::size_t voxel = mni_grid().index(place[0], place[1], place[2]);
        const float z = map.z[voxel];
        if (std::isfinite(z) && std::abs(z) > std::abs(plane.z[at])) plane.z[at] = z;
        if (!background.brain.empty() && background.brain[voxel] > 0) ++thickness[at];
      }
    }
  return {std::move(plane), std::move(thickness)};
}

/// Glass is brighter where one looks along its surface: where the thickness is small.
void shade(Projection& projection) {
  constexpr float thin = 20, brightest = 0.42F, darkest = 0.13F;
  for (std::size_t at = 0; at < projection.thickness.size(); ++at)
    if (projection.thickness[at] > 0)
      projection.plane.grey[at] =
          darkest + (brightest - darkest) * std::exp(-projection.thickness[at] / thin);
}

/// Where a view is drawn, in pixels of a page: its upper left corner, and the size of a voxel.
struct ViewPlace {
  double x, y, size;
};

/// The outline of the brain, smoothed over neighbouring voxels, as the line where that is a half.
void draw_outline(const Canvas& canvas, const ViewPlace& place, const Projection& projection) {
  const auto [x, y, size] = place;
  const VoxelPlane& plane = projection.plane;
  std::vector<float> inside(plane.z.size());
  for (int row = 0; row < plane.rows; ++row)
    for (int column = 0; column < plane.columns; ++column) {
      float sum = 0, weights = 0;
      for (int dv = -2; dv <= 2; ++dv)
        for (int du = -2; du <= 2; ++du) {
          const float weight = float((3 - std::abs(dv)) * (3 - std::abs(du)));
          weights += weight;
          const int u = column + du, v = row + dv;
          if (u < 0 || v < 0 || u >= plane.columns || v >= plane.rows) continue;
          if (projection.thickness[plane.at(u, v)] > 0) sum += weight;
        }
      inside[plane.at(column, row)] = sum / weights;
    }
  // Marching squares between the centres of four voxels.
  canvas.colour(outline_colour);
  cairo_t* context = canvas.context();
  cairo_set_line_width(context, 1.2);
  cairo_set_line_cap(context, CAIRO_LINE_CAP_ROUND);
  for (int row = 0; row + 1 < plane.rows; ++row)
    for (int column = 0; column + 1 < plane.columns; ++column) {
      const std::array<std::array<int, 2>, 4> corner = {
          {{column, row}, {column + 1, row}, {column + 1, row + 1}, {column, row + 1}}};
      int points = 0;
      for (std::size_t side = 0; side < 4; ++side) {
        const auto& from = corner[side];
        const auto& to = corner[(side + 1) % 4];
        const float a = inside[plane.at(from[0], from[1])] - 0.5F;
        const float b = inside[plane.at(to[0], to[1])] - 0.5F;
        if ((a < 0) == (b < 0)) continue;
        const double share = double(a / (a - b));
        const double px = x + (from[0] + share * (to[0] - from[0]) + 0.5) * size;
        const double py = y + (from[1] + share * (to[1] - from[1]) + 0.5) * size;
        if (points++ % 2 == 0)
          cairo_move_to(context, px, py);
        else
          cairo_line_to(context, px, py);
      }
    }
  cairo_stroke(context);
}

struct Place {
  double x, y;
};

/// Writes the marks that do not cover those before them.
void draw_marks(const Canvas& canvas, const ViewPlace& at, const View& view, const BrainBox& box,
                std::span<const BrainMark> marks) {
  constexpr double closest_across = 15, closest_down = 12;
  std::vector<Place> drawn;
  for (const BrainMark& mark : marks) {
    const std::array<int, 3> voxel = {mark.voxel.i, mark.voxel.j, mark.voxel.k};
    const Place place{at.x + (voxel[view.across] - box.low[view.across] + 0.5) * at.size,
                      at.y + (box.high[view.up] - voxel[view.up] + 0.5) * at.size};
    if (std::any_of(drawn.begin(), drawn.end(), [&](const Place& other) {
          return std::abs(other.x - place.x) < closest_across &&
                 std::abs(other.y - place.y) < closest_down;
        }))
      continue;
    drawn.push_back(place);
    canvas.text(
        place.x, place.y, mark.text,
        {.size = 11, .colour = {1, 1, 1}, .align = Align::centre, .bold = true, .rim = 1.5});
  }
}

}  // namespace

Picture glass_brain(const BrainMap& map, const BrainBackground& background,
                    std::span<const BrainMark> marks) {
  const ColourScale scale(map.z);
  const BrainBox box = brain_box(map, background);
  const auto across = [&](const View& view) { return box.size(view.across); };
  const int voxels_across = across(views[0]) + across(views[1]) + across(views[2]);
  int voxels_down = 0;
  for (const View& view : views) voxels_down = std::max(voxels_down, box.size(view.up));
  const int voxel_size = (sheet_width - 2 * margin - 2 * space) * picture_scale / voxels_across;
  const double size = double(voxel_size) / picture_scale;
  const int height = int(std::ceil(voxels_down * size));
  const bool has_bar = scale.has_positive() || scale.has_negative();
  const Canvas canvas(
      sheet_width, 2 * margin + title_height + height + (has_bar ? ColourScale::bar_height + 8 : 0),
      ground);
  int x = (sheet_width - int(voxels_across * size) - 2 * space) / 2;
  for (const View& view : views) {
    Projection projection = project(view, box, map, background);
    shade(projection);
    const double width = projection.plane.columns * size;
    const int y = margin + title_height + (height - int(projection.plane.rows * size)) / 2;
    draw_plane(canvas, {x * picture_scale, y * picture_scale, voxel_size}, projection.plane, scale);
    const ViewPlace place{double(x), double(y), size};
    draw_outline(canvas, place, projection);
    const double middle = margin + title_height / 2.0 - 2;
    canvas.text(x + width / 2, middle, view.title,
                {.size = 10.5, .colour = text_colour, .align = Align::centre});
    canvas.text(x + 2, middle, view.left, {.size = 11, .colour = text_colour, .bold = true});
    canvas.text(x + width - 2, middle, view.right,
                {.size = 11, .colour = text_colour, .align = Align::right, .bold = true});
    draw_marks(canvas, place, view, box, marks);
    x += int(width) + space;
  }
  scale.draw_bar(canvas, sheet_width / 2.0, canvas.height() - margin - ColourScale::bar_height + 4,
                 map.statistic);
  limit_greys(canvas);
  return canvas.picture("Glass brain in sagittal, coronal and axial view. " +
                        scale.words(map.statistic));
}

}  // namespace kvo::report
