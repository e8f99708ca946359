#include "engine/model/field_prior.h"

#include <Eigen/LU>
#include <algorithm>
#include <cmath>
#include <numbers>

#include "engine/images/gaussian.h"
#include "engine/images/voxel_grid.h"

namespace kvo::model {

namespace {

/// Voxels along the side of a cell.
constexpr int side = 4;
/// Where the kernel is cut off, in standard deviations.
constexpr double reach = 3.2;

std::array<std::size_t, 3> cell_counts() {
  const auto [nx, ny, nz] = mni_grid().size;
  const auto cells = [](int voxels) { return std::size_t((voxels + side - 1) / side); };
  return {cells(nx), cells(ny), cells(nz)};
}

using Rows = std::vector<FieldPrior::Row>;

/// Values on a grid, the first axis running fastest.
struct GridValues {
  std::array<std::size_t, 3> size;
  std::vector<double> values;
};

/// Applies the rows along one axis of `values` values; transposed, it turns an axis with one value
/// per row back into one of `values` values.
template <bool transposed>
GridValues along(const GridValues& in, int axis, const Rows& rows, std::size_t values) {
  GridValues out{in.size, {}};
  const auto a = std::size_t(axis);
  out.size[a] = transposed ? values : rows.size();
  std::size_t inner = 1, outer = 1;
  for (std::size_t b = 0; b < a; ++b) inner *= in.size[b];
  for (std::size_t b = a + 1; b < 3; ++b) outer *= in.size[b];
  out.values.assign(inner * outer * out.size[a], 0);
  for (std::size_t o = 0; o < outer; ++o)
    for (std::size_t i = 0; i < rows.size(); ++i) {
      const std::size_t made = (o * rows.size() + i) * inner;
      for (std::size_t k = 0; k < rows[i].weights.size(); ++k) {
        const double weight = rows[i].weights[k];
        const std::size_t taken = (o * values + rows[i].first + k) * inner;
        const double* from = &in.values[transposed ? made : taken];
        double* to = &out.values[transposed ? taken : made];
        for (std::size_t n = 0; n < inner; ++n) to[n] += weight * from[n];
      }
    }
  return out;
}

GridValues block_of(const Eigen::VectorXd& cells) {
  return {cell_counts(), {cells.data(), cells.data() + cells.size()}};
}

Eigen::VectorXd vector_of(const GridValues& block) {
  return Eigen::Map<const Eigen::VectorXd>(block.values.data(), Eigen::Index(block.values.size()));
}

Eigen::Vector3d voxel_of(const Eigen::Vector3d& mm) {
  static const Eigen::Matrix4d to_voxel = mni_grid().to_mm.inverse();
  return (to_voxel * Eigen::Vector4d(mm[0], mm[1], mm[2], 1)).head<3>();
}

}  // namespace

FieldPrior::FieldPrior(double width)
    // White noise smoothed with the kernel has the autocorrelation exp(-d² / (4 sigma²)).
    : sigma_(width / (4 * std::sqrt(std::numbers::ln2)) / voxel_mm) {
  const auto counts = cell_counts();
  for (int axis = 0; axis < 3; ++axis) {
    const auto a = std::size_t(axis);
    for (std::size_t c = 0; c < counts[a]; ++c)
      cells_[a].push_back(row(axis, double(c * side) + (side - 1) / 2.0));
    for (int v = 0; v < mni_grid().size[a]; ++v) voxels_[a].push_back(row(axis, v));
  }
}

std::size_t FieldPrior::cells() {
  const auto [nx, ny, nz] = cell_counts();
  return nx * ny * nz;
}

Eigen::VectorXd FieldPrior::volumes(const Mask& mask) {
  const auto [nx, ny, nz] = cell_counts();
  Eigen::VectorXd volumes = Eigen::VectorXd::Zero(Eigen::Index(nx * ny * nz));
  for (std::size_t n = 0; n < mask.size(); ++n) {
    const auto [i, j, k] = mask.voxel(n);
    const auto cell =
        std::size_t(i / side) + nx * (std::size_t(j / side) + ny * std::size_t(k / side));
    volumes[Eigen::Index(cell)] += voxel_volume;
  }
  return volumes;
}

std::size_t FieldPrior::cell_at(const Eigen::Vector3d& mm) {
  const auto counts = cell_counts();
  const Eigen::Vector3d voxel = voxel_of(mm);
  std::size_t cell = 0, stride = 1;
  for (std::size_t a = 0; a < 3; ++a) {
    const double c = std::floor((std::round(voxel[Eigen::Index(a)])) / side);
    if (!(c >= 0 && c < double(counts[a]))) return cells();
    cell += stride * std::size_t(c);
    stride *= counts[a];
  }
  return cell;
}

Eigen::VectorXd FieldPrior::at_cells(const Eigen::VectorXd& noise) const {
  GridValues block = block_of(noise);
  const auto counts = cell_counts();
  for (int axis = 0; axis < 3; ++axis)
    block = along<false>(block, axis, cells_[std::size_t(axis)], counts[std::size_t(axis)]);
  return vector_of(block);
}

Eigen::VectorXd FieldPrior::to_noise(const Eigen::VectorXd& field) const {
  GridValues block = block_of(field);
  const auto counts = cell_counts();
  for (int axis = 3; axis-- > 0;)
    block = along<true>(block, axis, cells_[std::size_t(axis)], counts[std::size_t(axis)]);
  return vector_of(block);
}

std::vector<float> FieldPrior::in_mask(const Eigen::VectorXd& noise, const Mask& mask) const {
  GridValues block = block_of(noise);
  const auto counts = cell_counts();
  // The longest rows are worked on last, and are the quickest.
  for (int axis = 0; axis < 3; ++axis)
    block = along<false>(block, axis, voxels_[std::size_t(axis)], counts[std::size_t(axis)]);
  std::vector<float> values(mask.size());
  for (std::size_t n = 0; n < mask.size(); ++n) values[n] = float(block.values[mask.grid_index[n]]);
  return values;
}

Eigen::VectorXd FieldPrior::mean_weights(const Mask& mask) const {
  const auto [nx, ny, nz] = mni_grid().size;
  GridValues block{{std::size_t(nx), std::size_t(ny), std::size_t(nz)}, {}};
  block.values.assign(mni_grid().voxels(), 0);
  for (const std::uint32_t index : mask.grid_index) block.values[index] = 1 / double(mask.size());
  const auto counts = cell_counts();
  for (std::size_t axis = 0; axis < 3; ++axis)
    block = along<true>(block, int(axis), voxels_[axis], counts[axis]);
  return vector_of(block);
}

FieldPlace FieldPrior::place(const Eigen::Vector3d& mm) const {
  const Eigen::Vector3d voxel = voxel_of(mm);
  FieldPlace place;
  for (int axis = 0; axis < 3; ++axis) {
    Row part = row(axis, voxel[axis]);
    place.first[std::size_t(axis)] = part.first;
    place.weights[std::size_t(axis)] = std::move(part.weights);
  }
  return place;
}

double FieldPrior::at(const FieldPlace& place, const Eigen::VectorXd& noise) {
  const auto [nx, ny, nz] = cell_counts();
  double sum = 0;
  for (std::size_t c = 0; c < place.weights[2].size(); ++c)
    for (std::size_t b = 0; b < place.weights[1].size(); ++b) {
      const double* row =
          noise.data() + place.first[0] + nx * (place.first[1] + b + ny * (place.first[2] + c));
      double part = 0;
      for (std::size_t a = 0; a < place.weights[0].size(); ++a)
        part += place.weights[0][a] * row[a];
      sum += place.weights[2][c] * place.weights[1][b] * part;
    }
  return sum;
}

void FieldPrior::add_to_noise(const FieldPlace& place, double value, Eigen::VectorXd& noise) {
  const auto [nx, ny, nz] = cell_counts();
  for (std::size_t c = 0; c < place.weights[2].size(); ++c)
    for (std::size_t b = 0; b < place.weights[1].size(); ++b) {
      double* row =
          noise.data() + place.first[0] + nx * (place.first[1] + b + ny * (place.first[2] + c));
      const double outer = value * place.weights[2][c] * place.weights[1][b];
      for (std::size_t a = 0; a < place.weights[0].size(); ++a)
        row[a] += outer * place.weights[0][a];
    }
}

FieldPrior::Row FieldPrior::row(int axis, double voxel) const {
  const auto count = double(cell_counts()[std::size_t(axis)]);
  const auto centre = [](double cell) { return cell * side + (side - 1) / 2.0; };
  const double far = reach * sigma_;
  const double first =
      std::clamp(std::ceil((voxel - far - (side - 1) / 2.0) / side), 0.0, count - 1);
  const double last =
      std::clamp(std::floor((voxel + far - (side - 1) / 2.0) / side), first, count - 1);
  Row row{std::size_t(first), {}};
  double squares = 0;
  for (double cell = first; cell <= last; ++cell) {
    const double weight = gaussian(centre(cell) - voxel, sigma_);
    row.weights.push_back(weight);
    squares += weight * weight;
  }
  for (double& weight : row.weights) weight /= std::sqrt(squares);
  return row;
}

}  // namespace kvo::model
