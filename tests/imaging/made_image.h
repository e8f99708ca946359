#pragma once

// Images that a test puts together byte by byte.

#include <zlib.h>

#include <cstring>
#include <numeric>
#include <span>
#include <string>
#include <vector>

#include "nifti/nifti_header.h"
#include "test_folder.h"
#include "util/handles.h"

/// A sound header of a 4 x 3 x 2 image of 32-bit floats that declares nothing.
inline Nifti_header made_header() {
  Nifti_header h{};
  h.sizeof_hdr = sizeof h;
  const std::int16_t dim[8] = {3, 4, 3, 2, 1, 1, 1, 1};
  std::memcpy(h.dim, dim, sizeof dim);
  h.datatype = NIFTI_FLOAT32;
  h.bitpix = 32;
  for (float& size : h.pixdim) size = 1;
  h.vox_offset = 352;
  std::memcpy(h.magic, "n+1", 4);
  return h;
}

inline std::string bytes_of(const Nifti_header& header) {
  return {reinterpret_cast<const char*>(&header), sizeof header};
}

template <typename T>
std::string bytes_of(const std::vector<T>& values) {
  return {reinterpret_cast<const char*>(values.data()), values.size() * sizeof(T)};
}

/// The bytes of a single file: header, the mark that there are no extensions, values.
inline std::string single_file(const Nifti_header& header, const std::string& values) {
  return bytes_of(header) + std::string(4, '\0') + values;
}

/// 24 values, 0.5 to 23.5, that fill made_header()'s image.
inline std::vector<float> made_values() {
  std::vector<float> values(24);
  std::iota(values.begin(), values.end(), 0.5F);
  return values;
}

inline void write_gzip(const std::filesystem::path& path, const std::string& bytes) {
  const Q_gz_file file(gzopen(path.c_str(), "wb"));
  gzwrite(file.get(), bytes.data(), static_cast<unsigned>(bytes.size()));
}
