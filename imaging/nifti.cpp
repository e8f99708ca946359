#include "imaging/nifti.h"

#include <algorithm>
#include <array>

#include "util/error.h"
#include "util/q_string.h"

int Q_load_nifti(Nifti_header& header, std::int32_t& n_volumes, std::int32_t& voxels_per_volume,
                 std::span<Nifti_volume> volumes, const char* format, ...) {
  Q_FORMAT_ARGUMENTS(path, format);
  Nifti_options options;
  options.max_volumes = static_cast<std::int64_t>(volumes.size());
  auto result = nifti_read(path.str(), options);
  if (const auto* error = std::get_if<Nifti_error>(&result)) Q_error("%s", error->message.c_str());
  auto& image = std::get<Nifti_image>(result);
  header = image.header;
  n_volumes = image.n_volumes;
  voxels_per_volume = image.voxels_per_volume;
  std::ranges::move(image.volumes, volumes.begin());
  return static_cast<int>(image.kind);
}

void Q_load_nifti_one_or_die(Nifti_header& header, std::int32_t& voxels_per_volume,
                             Nifti_volume& volume, const char* format, ...) {
  Q_FORMAT_ARGUMENTS(path, format);
  std::array<Nifti_volume, Q_MAX_VOLUMES> volumes;
  std::int32_t n_volumes = 0;
  Q_load_nifti(header, n_volumes, voxels_per_volume, volumes, "%s", path.c_str());
  if (n_volumes != 1) Q_error("'%s' does not contain one volume", path.c_str());
  volume = std::move(volumes[0]);
}
