#pragma once

// Smooth fields over the brain: white noise in the cells of a coarse grid, smoothed with a Gaussian
// kernel. Independent standard normal values in the cells become a field with variance 1
// everywhere.

#include <Eigen/Core>
#include <array>
#include <vector>

#include "engine/images/mask.h"
#include "engine/model/model_layer.h"

namespace kvo::model {

/// The interpolation of a field at a place: a sum over a box of cells with separable weights.
struct FieldPlace {
  std::array<std::size_t, 3> first;
  std::array<std::vector<double>, 3> weights;
};

class FieldPrior {
 public:
  /// `width` is the full width at half maximum of the field's autocorrelation, in mm.
  explicit FieldPrior(double width);

  [[nodiscard]] static std::size_t cells();
  /// How many mm³ of each cell lie in the mask.
  [[nodiscard]] static Eigen::VectorXd volumes(const Mask& mask);
  /// The cell that contains a place in MNI space, in mm; cells() outside the grid.
  [[nodiscard]] static std::size_t cell_at(const Eigen::Vector3d& mm);

  /// The field at the centres of the cells, from the values of the noise there: K z.
  [[nodiscard]] Eigen::VectorXd at_cells(const Eigen::VectorXd& noise) const;
  /// The transpose of that: K' f.
  [[nodiscard]] Eigen::VectorXd to_noise(const Eigen::VectorXd& field) const;
  /// The field in the voxels of a mask.
  [[nodiscard]] std::vector<float> in_mask(const Eigen::VectorXd& noise, const Mask& mask) const;

  /// The weights of the noise in the mean of the field over the voxels of a mask, which must not be
  /// empty.
  [[nodiscard]] Eigen::VectorXd mean_weights(const Mask& mask) const;

  [[nodiscard]] FieldPlace place(const Eigen::Vector3d& mm) const;
  [[nodiscard]] static double at(const FieldPlace& place, const Eigen::VectorXd& noise);
  /// Adds the value times the weights to the noise: the transpose of at().
  static void add_to_noise(const FieldPlace& place, double value, Eigen::VectorXd& noise);

  /// The cells that contribute at a coordinate, with their weights.
  struct Row {
    std::size_t first;
    std::vector<double> weights;
  };

 private:
  [[nodiscard]] Row row(int axis, double voxel) const;

  double sigma_;                                    ///< of the kernel, in voxels
  std::array<std::vector<Row>, 3> cells_, voxels_;  ///< of the centres of each axis
};

}  // namespace kvo::model
