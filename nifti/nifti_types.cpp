#include "nifti/nifti_types.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <type_traits>

#include "nifti/byte_order.h"

namespace {

/// 64-bit values are converted to float by way of double, as other software does.
template <typename T>
float to_float(T value) {
  return static_cast<float>(
      static_cast<std::conditional_t<sizeof(T) == sizeof(double), double, T>>(value));
}

/// The choices are compile-time so that each combination becomes one vectorised loop.
template <typename T, bool OTHER_ORDER, bool SCALED>
void convert_loop(const char* stored, const Nifti_scaling& scaling, float* values, std::size_t n) {
  const double slope = scaling.slope;
  // Adding minus zero changes nothing; adding plus zero would turn -0 into +0.
  const double intercept = scaling.intercept == 0 ? -0.0 : scaling.intercept;
  for (std::size_t i = 0; i < n; ++i) {
    T value;
    std::memcpy(&value, stored + i * sizeof value, sizeof value);
    if constexpr (OTHER_ORDER) value = nifti_swapped(value);
    if constexpr (SCALED)
      values[i] = static_cast<float>(slope * static_cast<double>(value) + intercept);
    else
      values[i] = to_float(value);
  }
}

using Loop = void (*)(const char*, const Nifti_scaling&, float*, std::size_t);

/// Converts values in place, through a small copy, so that the loop's input and output never
/// overlap and it can be vectorised.
void convert_in_place(Loop loop, const Nifti_scaling& scaling, float* values, std::size_t n) {
  std::array<char, 4096 * sizeof(float)> stored;  // NOLINT(cppcoreguidelines-pro-type-member-init)
  while (n > 0) {
    const std::size_t block = std::min(n, stored.size() / sizeof(float));
    std::memcpy(stored.data(), values, block * sizeof(float));
    loop(stored.data(), scaling, values, block);
    values += block;
    n -= block;
  }
}

template <typename T>
void convert(const char* stored, bool other_order, const Nifti_scaling& scaling, float* values,
             std::size_t n) {
  const bool in_place = stored == reinterpret_cast<const char*>(values);
  if (std::is_same_v<T, float> && in_place && !other_order && !scaling.applies) return;
  const Loop loop =
      other_order
          ? (scaling.applies ? convert_loop<T, true, true> : convert_loop<T, true, false>)
          : (scaling.applies ? convert_loop<T, false, true> : convert_loop<T, false, false>);
  if (in_place)
    convert_in_place(loop, scaling, values, n);
  else
    loop(stored, scaling, values, n);
}

constexpr Nifti_type TYPES[] = {
    {2, 8, true, convert<std::uint8_t>},      {4, 16, true, convert<std::int16_t>},
    {8, 32, true, convert<std::int32_t>},     {16, 32, true, convert<float>},
    {64, 64, false, convert<double>},         {256, 8, false, convert<std::int8_t>},
    {512, 16, false, convert<std::uint16_t>}, {768, 32, false, convert<std::uint32_t>},
    {1024, 64, false, convert<std::int64_t>}, {1280, 64, false, convert<std::uint64_t>},
};

}  // namespace

const Nifti_type* nifti_type(std::int16_t code) {
  for (const Nifti_type& type : TYPES)
    if (type.code == code) return &type;
  return nullptr;
}
