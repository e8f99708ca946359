#pragma once

// The header record of the NIfTI-1 format (Cox et al. 2004, "A (sort of) new image data format
// standard: NIfTI-1") and the codes used here.

#include <cstdint>

/// The 348 bytes as they stand in a file, fields named as the format names them.
struct Nifti_header {
  std::int32_t sizeof_hdr;
  char data_type[10];
  char db_name[18];
  std::int32_t extents;
  std::int16_t session_error;
  char regular;
  char dim_info;
  std::int16_t dim[8];
  float intent_p1;
  float intent_p2;
  float intent_p3;
  std::int16_t intent_code;
  std::int16_t datatype;
  std::int16_t bitpix;
  std::int16_t slice_start;
  float pixdim[8];
  float vox_offset;
  float scl_slope;
  float scl_inter;
  std::int16_t slice_end;
  char slice_code;
  char xyzt_units;
  float cal_max;
  float cal_min;
  float slice_duration;
  float toffset;
  std::int32_t glmax;
  std::int32_t glmin;
  char descrip[80];
  char aux_file[24];
  std::int16_t qform_code;
  std::int16_t sform_code;
  float quatern_b;
  float quatern_c;
  float quatern_d;
  float qoffset_x;
  float qoffset_y;
  float qoffset_z;
  float srow_x[4];
  float srow_y[4];
  float srow_z[4];
  char intent_name[16];
  char magic[4];
};
static_assert(sizeof(Nifti_header) == 348);

// `intent_code`: what the values are.
inline constexpr std::int16_t NIFTI_T_STATISTIC = 3;
inline constexpr std::int16_t NIFTI_Z_SCORE = 5;
inline constexpr std::int16_t NIFTI_LOG10_P = 24;

// `qform_code` and `sform_code`: the space that the voxels are placed in.
inline constexpr std::int16_t NIFTI_SCANNER = 1;
inline constexpr std::int16_t NIFTI_ALIGNED = 2;
inline constexpr std::int16_t NIFTI_TALAIRACH = 3;
inline constexpr std::int16_t NIFTI_MNI = 4;

// `xyzt_units`: the unit of all lengths in the header, in the bits of this mask. 0 is unknown.
inline constexpr int NIFTI_LENGTH_UNIT = 7;
inline constexpr int NIFTI_METRES = 1;
inline constexpr int NIFTI_MILLIMETRES = 2;
inline constexpr int NIFTI_MICROMETRES = 3;

// `datatype`: how the values are stored.
inline constexpr std::int16_t NIFTI_FLOAT32 = 16;

/// Whether `sform_code` declares one of the two spaces that the system knows.
inline bool nifti_has_known_space(const Nifti_header& header) {
  return header.sform_code == NIFTI_TALAIRACH || header.sform_code == NIFTI_MNI;
}

/// Reverses the bytes of each field of more than one byte, but for `extents`, `session_error`,
/// `glmax` and `glmin`, which no software uses.
void nifti_swap_header(Nifti_header& header);

/// Whether the record ends with the format's magic string, whatever its version digit.
bool nifti_has_magic(const Nifti_header& header);
