#include "engine/studies/study_image.h"

#include <Eigen/LU>
#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>

#include "engine/base/refusal.h"
#include "engine/base/text_file.h"
#include "engine/images/talairach.h"
#include "engine/images/trilinear.h"
#include "engine/studies/study_rules.h"
#include "nifti/nifti_header.h"
#include "util/q_string.h"

namespace kvo::studies {

namespace {

constexpr double doubtful_mm = 1;
constexpr double same_df = 0.5;
/// With less of the weight there is no data. Rounding must not decide halfway between two voxels.
constexpr double least_weight = 0.5 - 1e-6;
constexpr float no_data = std::numeric_limits<float>::quiet_NaN();

bool has_data(float value) {
  return value != 0 && !std::isnan(value);
}

std::string rounded(double number) {
  return Q_format("%.6g", number).str();
}

/// How to convert the image to t statistics, given what its header says the values are.
std::string conversion(const std::string& file, int intent_code, double df) {
  const char* option = "-set_t";
  const char* now = "its header does not say what its values are";
  if (intent_code == NIFTI_Z_SCORE) {
    option = "-z2t";
    now = "its values are z scores";
  } else if (intent_code == NIFTI_LOG10_P) {
    option = "-logp2t";
    now = "its values are -log10 p values";
  } else if (intent_code != 0) {
    now = "its values are something else";
  }
  std::string command = "imgcalc " + file + " " + option + " " + rounded(df);
  if (intent_code == NIFTI_Z_SCORE || intent_code == NIFTI_LOG10_P) command += " " + file;
  return std::string(now) + " (NIfTI intent " + std::to_string(intent_code) +
         "). Please convert it with 'Convert images' of the menu, or with '" + command + "'";
}

void check_values(const std::string& file, const Image& image) {
  bool any = false;
  for (std::size_t v = 0; v < image.values.size(); ++v) {
    const float value = image.values[v];
    if (std::abs(value) > float(max_t)) {
      const Eigen::Vector3d mm = image.grid.mm(image.grid.voxel(v));
      throw Refusal("'" + file + "' has the value " + rounded(value) + " at " + rounded(mm[0]) +
                    " " + rounded(mm[1]) + " " + rounded(mm[2]) +
                    " mm, which cannot be a t value.");
    }
    any = any || has_data(value);
  }
  if (!any) throw Refusal("'" + file + "' is empty: each value is 0 or no number.");
}

std::vector<std::string> doubts_about(const Image& image, const Study& study) {
  std::vector<std::string> doubts;
  const Placement& placement = image.placement;
  if (placement.mirrored)
    doubts.emplace_back(
        "sform and qform of its header disagree about left and right; the sform is followed");
  else if (placement.apart_mm > doubtful_mm)
    doubts.push_back("sform and qform of its header place it up to " +
                     rounded(std::ceil(placement.apart_mm)) + " mm apart; the sform is followed");
  if (placement.code == 0)
    doubts.emplace_back(
        "its header does not place it in space; its voxels are those of a standard grid of MNI "
        "space, and are taken to be stored from left to right. Please check the result");
  else if (image.space == Space::unknown)
    doubts.push_back("its header does not name its space (code " + std::to_string(placement.code) +
                     "); it is taken to be in MNI space");
  const double df = degrees_of_freedom(study.sample), said = image.intent_p1;
  if (said > 0 && std::isfinite(said) && std::abs(said - df) > same_df)
    doubts.push_back("its header has " + rounded(said) + " degrees of freedom, but the table has " +
                     rounded(df) + "; the table is followed");
  return doubts;
}

/// The value of an image at a place between its voxels, by the rules in study_image.h.
float value_at(const Image& image, const Eigen::Vector3d& place) {
  for (unsigned axis = 0; axis < 3; ++axis)
    if (!(place[axis] > -1 && place[axis] < image.grid.size[axis])) return no_data;
  double sum = 0, total = 0;
  for_each_corner(place, [&](const Voxel& corner, double weight) {
    if (!image.grid.holds(corner)) return;
    const float value = image.values[image.grid.index(corner)];
    if (!has_data(value)) return;
    sum += weight * double(value);
    total += weight;
  });
  return total < least_weight ? no_data : float(sum / total);
}

}  // namespace

std::string image_file(const Study& study) {
  return image_file_of(study.name);
}

StudyImage read_study_image(const Study& study, const Mask& mask) {
  const std::string file = image_file(study);
  const Image image = read_image(file);
  if (image.intent_code != NIFTI_T_STATISTIC)
    throw Refusal("'" + file + "' holds no t statistics: " +
                  conversion(file, image.intent_code, degrees_of_freedom(study.sample)) + ".");
  check_values(file, image);
  StudyImage result;
  result.doubts = doubts_about(image, study);
  const Eigen::Matrix4d to_its_space =
      image.space == Space::talairach ? talairach_of_mni() : Eigen::Matrix4d::Identity();
  const Eigen::Matrix4d to_voxel = image.grid.to_mm.inverse() * to_its_space * mni_grid().to_mm;
  result.t.reserve(mask.size());
  for (std::size_t n = 0; n < mask.size(); ++n) {
    const Voxel at = mask.voxel(n);
    const Eigen::Vector4d place = to_voxel * Eigen::Vector4d(at.i, at.j, at.k, 1);
    result.t.push_back(value_at(image, place.head<3>()));
    if (std::isnan(result.t.back())) ++result.without_data;
  }
  if (result.without_data == mask.size()) throw Refusal("'" + file + "' has no data in the mask.");
  return result;
}

}  // namespace kvo::studies
