#include "companions/imgcalc/image_operations.h"

#include <Eigen/Core>
#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

#include "engine/base/cancel.h"
#include "engine/base/parallel.h"
#include "engine/base/refusal.h"
#include "engine/base/t_statistic.h"
#include "nifti/nifti_affine.h"
#include "nifti/nifti_file.h"
#include "nifti/nifti_write.h"
#include "util/q_string.h"

namespace kvo::imgcalc {

namespace {

/// Voxels per task.
constexpr std::size_t BLOCK = 4096;
/// Rounding tolerance between two transforms, in mm.
constexpr double SAME_PLACE = 0.01;

using Conversion = double (*)(double value, double df);

template <typename T>
T value_of(Nifti_result<T> result) {
  if (const auto* error = std::get_if<Nifti_error>(&result)) throw Refusal(error->message);
  return std::get<T>(std::move(result));
}

bool go_on() {
  return !cancel_requested();
}

void finish(const std::optional<Nifti_error>& error) {
  if (error) throw Refusal(error->message);
  stop_if_cancelled();
}

Nifti_image read_any(const std::string& path) {
  Nifti_options options;
  options.all_types = true;
  return value_of(nifti_read(path, options));
}

void compress(const Command& command) {
  const Nifti_image image = read_any(command.path);
  if (image.kind == Nifti_kind::compressed)
    throw Refusal("'" + image.path + "' is a NIfTI compressed file already");
  constexpr std::size_t EXTENSION = 3;  // "nii" and "hdr"
  finish(nifti_write(image.path.substr(0, image.path.size() - EXTENSION) + "nii.gz", image, go_on));
}

void change_values(const Command& command, std::int16_t intent_code) {
  finish(nifti_rewrite_header(
      command.path, [&](Nifti_header& header) { declare_values(header, intent_code, command.df); },
      go_on));
}

void change_space(const Command& command, std::int16_t space_code, const Say& say) {
  const auto info = value_of(nifti_read_info(command.path));
  Nifti_header changed = info.header;
  declare_space(changed, space_code, info.path, say);
  finish(nifti_rewrite_header(
      info.path, [&](Nifti_header& header) { header = changed; }, go_on));
}

/// Where the header places the voxels, by the sform, else the qform, else the standard grid.
Eigen::Matrix4d affine_of(const Nifti_header& h, std::int16_t space_code, const std::string& path,
                          const Say& say) {
  if (h.sform_code > 0) return nifti_sform(h);
  const std::string unplaced = "the header of '" + path + "' does not place the voxels in space: ";
  if (h.qform_code > 0) {
    if (const auto qform = nifti_qform(h)) return *qform;
    throw Refusal(unplaced + "its qform is no rotation");
  }
  const char* space = space_code == NIFTI_TALAIRACH ? "Talairach" : "MNI";
  const auto standard = nifti_standard_affine(h, space_code);
  if (!standard)
    throw Refusal(unplaced + "it has neither qform nor sform, and " + nifti_grid_text(h) +
                  " are no standard grid of " + space +
                  " space. Please have the program that made the image write its place into the "
                  "header");
  say("Placing the " + nifti_grid_text(h) + " as the standard grid of " + space +
      " space does, from left to right");
  return *standard;
}

/// Says that the qform is replaced, if it placed the voxels elsewhere.
void say_replaced(const Nifti_header& h, const Eigen::Matrix4d& affine, const Say& say) {
  if (h.qform_code <= 0) return;
  const auto qform = nifti_qform(h);
  const double apart = qform ? nifti_farthest_apart(h, *qform, affine) : 0;
  if (!qform)
    say("Replacing its qform, which is no rotation, by its sform");
  else if (apart > SAME_PLACE)
    say(Q_format("Replacing its qform, which places voxels up to %.2f mm elsewhere, by its sform",
                 apart)
            .str());
}

float converted(float value, Conversion conversion, double df) {
  if (!std::isfinite(value)) return value;
  constexpr double LARGEST = std::numeric_limits<float>::max();
  return static_cast<float>(std::clamp(conversion(value, df), -LARGEST, LARGEST));
}

void convert_values(const Command& command, Conversion conversion) {
  Nifti_image image = read_any(command.path);
  const auto voxels = static_cast<std::size_t>(image.voxels_per_volume);
  for (const Nifti_volume& volume : image.volumes)
    in_parallel((voxels + BLOCK - 1) / BLOCK, [&](std::size_t block, std::size_t /*thread*/) {
      const std::size_t end = std::min(voxels, (block + 1) * BLOCK);
      for (std::size_t i = block * BLOCK; i < end; ++i)
        volume[i] = converted(volume[i], conversion, command.df);
    });
  declare_values(image.header, NIFTI_T_STATISTIC, command.df);
  // The range of shown values was that of the old ones; 0 to 0 means none.
  image.header.cal_min = image.header.cal_max = 0;
  finish(nifti_write(command.output, image, go_on));
}

}  // namespace

void declare_values(Nifti_header& h, std::int16_t intent_code, double parameter) {
  h.intent_code = intent_code;
  h.intent_p1 = static_cast<float>(parameter);
  h.intent_p2 = h.intent_p3 = 0;
  std::memset(h.intent_name, 0, sizeof h.intent_name);
}

void declare_space(Nifti_header& h, std::int16_t space_code, const std::string& path,
                   const Say& say) {
  if (nifti_mm_per_unit(h) != 1) say("Converting its lengths to mm");
  nifti_use_millimetres(h);
  const Eigen::Matrix4d affine = affine_of(h, space_code, path, say);
  if (!nifti_places_voxels(affine))
    throw Refusal("the header of '" + path + "' does not place the voxels in space");
  if (h.sform_code <= 0) nifti_set_sform(h, affine);
  // Viewers differ in which of the two they go by.
  const auto qform = h.qform_code > 0 ? nifti_qform(h) : std::nullopt;
  if (!qform || !(nifti_farthest_apart(h, *qform, affine) <= SAME_PLACE)) {
    say_replaced(h, affine, say);
    nifti_set_qform(h, affine);
  }
  h.sform_code = h.qform_code = space_code;
}

void carry_out(const Command& command, const Say& say) {
  switch (command.operation) {
    case Operation::compress:
      return compress(command);
    case Operation::set_t:
      return change_values(command, NIFTI_T_STATISTIC);
    case Operation::set_z:
      return change_values(command, NIFTI_Z_SCORE);
    case Operation::set_log10_p:
      return change_values(command, NIFTI_LOG10_P);
    case Operation::set_mni:
      return change_space(command, NIFTI_MNI, say);
    case Operation::set_talairach:
      return change_space(command, NIFTI_TALAIRACH, say);
    case Operation::z_to_t:
      return convert_values(command, t_of_z);
    case Operation::log10_p_to_t:
      return convert_values(command, t_of_log10_p);
  }
}

}  // namespace kvo::imgcalc
