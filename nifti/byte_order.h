#pragma once

// Byte-swapping of numbers.

#include <bit>
#include <cstdint>
#include <type_traits>

inline std::uint8_t nifti_swapped_bits(std::uint8_t bits) {
  return bits;
}
inline std::uint16_t nifti_swapped_bits(std::uint16_t bits) {
  return __builtin_bswap16(bits);
}
inline std::uint32_t nifti_swapped_bits(std::uint32_t bits) {
  return __builtin_bswap32(bits);
}
inline std::uint64_t nifti_swapped_bits(std::uint64_t bits) {
  return __builtin_bswap64(bits);
}

/// The unsigned whole number with as many bytes as T.
template <typename T>
using Nifti_bits = std::conditional_t<
    sizeof(T) == 1, std::uint8_t,
    std::conditional_t<sizeof(T) == 2, std::uint16_t,
                       std::conditional_t<sizeof(T) == 4, std::uint32_t, std::uint64_t>>>;

/// A number read in the opposite byte order.
template <typename T>
T nifti_swapped(T value) {
  return std::bit_cast<T>(nifti_swapped_bits(std::bit_cast<Nifti_bits<T>>(value)));
}
