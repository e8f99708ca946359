#include "nifti/nifti_header.h"

#include <type_traits>

#include "nifti/byte_order.h"

namespace {

template <typename Field>
void swap_field(Field& field) {
  if constexpr (std::is_array_v<Field>)
    for (auto& element : field) swap_field(element);
  else
    field = nifti_swapped(field);
}

template <typename... Fields>
void swap_fields(Fields&... fields) {
  (swap_field(fields), ...);
}

}  // namespace

void nifti_swap_header(Nifti_header& h) {
  swap_fields(h.sizeof_hdr, h.dim, h.intent_p1, h.intent_p2, h.intent_p3, h.intent_code, h.datatype,
              h.bitpix, h.slice_start, h.pixdim, h.vox_offset, h.scl_slope, h.scl_inter,
              h.slice_end, h.cal_max, h.cal_min, h.slice_duration, h.toffset, h.qform_code,
              h.sform_code, h.quatern_b, h.quatern_c, h.quatern_d, h.qoffset_x, h.qoffset_y,
              h.qoffset_z, h.srow_x, h.srow_y, h.srow_z);
}

bool nifti_has_magic(const Nifti_header& h) {
  return h.magic[0] == 'n' && (h.magic[1] == '+' || h.magic[1] == 'i') && h.magic[2] >= '1' &&
         h.magic[2] <= '9' && h.magic[3] == '\0';
}
