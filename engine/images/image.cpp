#include "engine/images/image.h"

#include <fcntl.h>
#include <unistd.h>

#include <Eigen/LU>
#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <new>
#include <span>
#include <stdexcept>

#include "engine/base/refusal.h"
#include "nifti/nifti_affine.h"
#include "nifti/nifti_file.h"
#include "nifti/nifti_write.h"
#include "util/handles.h"

namespace kvo::images {

namespace {

/// Enough for a head at a quarter of a mm, but not for a decompression bomb.
constexpr std::uint64_t max_bytes = std::uint64_t(1) << 30;
constexpr float first_voxel_offset = 352;

[[noreturn]] void refuse(const std::string& path, const std::string& reason) {
  throw Refusal("'" + path + "': " + reason + ".");
}

[[noreturn]] void refuse(const std::string& path, const Nifti_error& error) {
  switch (error.problem) {
    case Nifti_problem::not_found:
      refuse(path, std::string("cannot be opened: ") +
                       std::strerror(access(path.c_str(), R_OK) != 0 ? errno : EIO));
    case Nifti_problem::not_regular:
      refuse(path, "is not a regular file");
    case Nifti_problem::not_nifti:
      refuse(path, "is not a NIfTI-1 image");
    case Nifti_problem::too_many:
      refuse(path, "holds more than one volume");
    case Nifti_problem::ends_early:
      refuse(path, "ends early, or its compressed data are damaged");
    case Nifti_problem::memory:
      refuse(path, "is too large");
    default:
      throw Refusal(error.message + ".");
  }
}

template <typename T>
T value_of(const std::string& path, Nifti_result<T> result) {
  if (const auto* error = std::get_if<Nifti_error>(&result)) refuse(path, *error);
  return std::get<T>(std::move(result));
}

void check_volume(const std::string& path, const Nifti_info& info) {
  const int dimensions = info.header.dim[0];
  if (dimensions < 3)
    refuse(path, "is not a volume: it has " + std::to_string(dimensions) + " dimensions");
  if (info.n_volumes > 1) refuse(path, "holds more than one volume");
  if (info.kind != Nifti_kind::pair && info.header.vox_offset < first_voxel_offset)
    refuse(path, "the header is damaged: the voxels cannot begin at byte " +
                     std::to_string(info.header.vox_offset));
}

Space space_of(int code) {
  if (code == int(Space::mni)) return Space::mni;
  if (code == int(Space::talairach)) return Space::talairach;
  return Space::unknown;
}

/// Compares the qform with the sform that is followed.
void compare_placements(const Nifti_header& h, const Eigen::Matrix4d& sform, Placement& placement) {
  const auto qform = h.qform_code > 0 ? nifti_qform(h) : std::nullopt;
  if (!qform || !nifti_places_voxels(*qform)) return;
  const auto handedness = [](const Eigen::Matrix4d& affine) {
    return affine.topLeftCorner<3, 3>().determinant() > 0;
  };
  placement.mirrored = handedness(sform) != handedness(*qform);
  // Scanner coordinates differ from those of a standard brain anyway.
  if (h.qform_code != NIFTI_SCANNER || h.sform_code == NIFTI_SCANNER)
    placement.apart_mm = nifti_farthest_apart(h, sform, *qform);
}

/// Sets the affine of the voxels, still in the file's order: by the sform, else the qform, else the
/// standard grid that has these voxel sizes.
void place(const std::string& path, const Nifti_header& h, Image& image) {
  Eigen::Matrix4d& affine = image.grid.to_mm;
  if (h.sform_code > 0) {
    affine = nifti_sform(h);
    image.placement.code = h.sform_code;
  } else if (h.qform_code > 0) {
    const auto qform = nifti_qform(h);
    if (!qform) refuse(path, "the header is damaged: its qform is no rotation");
    affine = *qform;
    image.placement.code = h.qform_code;
  } else {
    const auto standard = nifti_standard_affine(h, NIFTI_MNI);
    if (!standard)
      refuse(path,
             "the header does not place the voxels in space: it has neither qform nor sform, "
             "and " +
                 nifti_grid_text(h) +
                 " are no standard grid of MNI space. Please have the program that made the "
                 "image write its place into the header");
    affine = *standard;
  }
  image.space = space_of(image.placement.code);
  if (!nifti_places_voxels(affine)) refuse(path, "the header does not place the voxels in space");
  if (h.sform_code > 0) compare_placements(h, affine, image.placement);
}

/// The image as the header alone describes it, not yet reoriented.
Image placed_image(const std::string& path, const Nifti_info& info) {
  check_volume(path, info);
  const Nifti_header& h = info.header;
  Image image;
  image.grid.size = {h.dim[1], h.dim[2], h.dim[3]};
  place(path, h, image);
  image.intent_code = h.intent_code;
  image.intent_p1 = h.intent_p1;
  image.description.assign(h.descrip, strnlen(h.descrip, sizeof h.descrip));
  return image;
}

/// The voxel axis that runs closest to each of the axes right, front and up.
std::array<int, 3> closest_axes(const Eigen::Matrix3d& axes) {
  const Eigen::Matrix3d cosines = axes.colwise().normalized().cwiseAbs();
  std::array<int, 3> order{0, 1, 2};
  std::array<int, 3> best = order;
  double best_sum = -1;
  do {
    const double sum = cosines(0, order[0]) + cosines(1, order[1]) + cosines(2, order[2]);
    if (sum > best_sum + 1e-9) {
      best_sum = sum;
      best = order;
    }
  } while (std::next_permutation(order.begin(), order.end()));
  return best;
}

/// Permutes and mirrors the voxels so that i runs to the right, j to the front and k up, as far as
/// an oblique image allows. Every voxel keeps its value and its place in the head.
void turn_to_ras(Image& image) {
  const Grid from = image.grid;
  const std::array<int, 3> axis = closest_axes(from.to_mm.topLeftCorner<3, 3>());
  Eigen::Matrix4d to_old = Eigen::Matrix4d::Zero();
  to_old(3, 3) = 1;
  std::array<std::ptrdiff_t, 3> step{};
  std::ptrdiff_t start = 0;
  for (int w = 0; w < 3; ++w) {
    const int a = axis[std::size_t(w)];
    const int length = from.size[std::size_t(a)];
    const std::ptrdiff_t stride = a == 0   ? 1
                                  : a == 1 ? from.size[0]
                                           : std::ptrdiff_t(from.size[0]) * from.size[1];
    const bool mirrored = from.to_mm(w, a) < 0;
    image.grid.size[std::size_t(w)] = length;
    to_old(a, w) = mirrored ? -1 : 1;
    to_old(a, 3) = mirrored ? length - 1 : 0;
    step[std::size_t(w)] = mirrored ? -stride : stride;
    if (mirrored) start += stride * (length - 1);
  }
  if (to_old.isIdentity(0)) return;
  image.grid.to_mm = from.to_mm * to_old;
  std::vector<float> turned;
  turned.reserve(image.values.size());
  for (int k = 0; k < image.grid.size[2]; ++k)
    for (int j = 0; j < image.grid.size[1]; ++j)
      for (int i = 0; i < image.grid.size[0]; ++i)
        turned.push_back(
            image.values[std::size_t(start + i * step[0] + j * step[1] + k * step[2])]);
  image.values = std::move(turned);
}

/// The longest prefix of at most 79 bytes that does not end within a UTF-8 character.
std::string cut_description(const std::string& text) {
  std::size_t length = std::min(text.size(), sizeof(Nifti_header::descrip) - 1);
  if (length < text.size())
    while (length > 0 && (text[length] & 0xC0) == 0x80) --length;
  return text.substr(0, length);
}

Nifti_header header_of(const Image& image) {
  Nifti_header h{};
  h.regular = 'r';
  std::fill(std::begin(h.dim), std::end(h.dim), std::int16_t(1));
  h.dim[0] = 3;
  for (int d = 0; d < 3; ++d) h.dim[1 + d] = std::int16_t(image.grid.size[std::size_t(d)]);
  h.intent_code = std::int16_t(image.intent_code);
  h.intent_p1 = image.intent_p1;
  h.scl_slope = 1;
  h.xyzt_units = NIFTI_MILLIMETRES;
  const std::string description = cut_description(image.description);
  std::memcpy(h.descrip, description.data(), description.size());
  // Readers ignore an affine whose code is 0, so an unknown space gets a code as well.
  h.sform_code = h.qform_code =
      image.space == Space::unknown ? NIFTI_ALIGNED : std::int16_t(image.space);
  nifti_set_sform(h, image.grid.to_mm);
  nifti_set_qform(h, image.grid.to_mm);
  return h;
}

[[noreturn]] void refuse_writing(const std::string& path) {
  refuse(path, std::string("cannot be written: ") + std::strerror(errno));
}

}  // namespace

std::string read_description(const std::string& path) {
  return placed_image(path, value_of(path, nifti_read_info(path))).description;
}

Space read_space(const std::string& path) {
  return placed_image(path, value_of(path, nifti_read_info(path))).space;
}

Image read_image(const std::string& path) {
  Nifti_options options;
  options.max_volumes = 1;
  options.max_bytes = max_bytes;
  options.all_types = true;
  const Nifti_image read = value_of(path, nifti_read(path, options));
  Image image = placed_image(path, read);
  try {
    image.values.assign(read.values(0).begin(), read.values(0).end());
    turn_to_ras(image);
  } catch (const std::bad_alloc&) {
    refuse(path, "is too large");
  }
  return image;
}

void write_image(const std::string& path, const Image& image) {
  const auto storable = [](int length) { return length >= 1 && length <= INT16_MAX; };
  if (!std::all_of(image.grid.size.begin(), image.grid.size.end(), storable) ||
      image.values.size() != image.grid.voxels())
    throw std::invalid_argument("write_image: the values do not fill the grid");

  Q_fd file(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
  if (!file) refuse_writing(path);
  const std::span<const float> values(image.values);
  if (!nifti_write_to(file.get(), path.ends_with(".gz"), header_of(image), {&values, 1}) ||
      close(file.release()) != 0)
    refuse_writing(path);
}

}  // namespace kvo::images
