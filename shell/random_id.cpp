#include "shell/random_id.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <ctime>

namespace {

constexpr std::size_t RECORD_SIZE = 24;
constexpr int DIGIT_END = 1000;
constexpr float ID_END = 1000000000.0F;

struct Entropy {
  int phase = 0;
  std::uint64_t time_sum = 0;   // seconds
  std::uint64_t clock_sum = 0;  // processor-clock ticks
  std::uint32_t counter = 0;
};

std::uint32_t accumulator = 0;
Entropy entropy;
std::size_t cursor = RECORD_SIZE;

void refresh() {
  switch (entropy.phase) {
    case 0:
      entropy.time_sum += static_cast<std::uint64_t>(std::time(nullptr));
      accumulator ^= static_cast<std::uint32_t>(entropy.time_sum);
      break;
    case 1:
      entropy.clock_sum += static_cast<std::uint64_t>(std::clock());
      break;
    default:
      ++entropy.counter;
  }
  entropy.phase = (entropy.phase + 1) % 3;
  cursor = 0;
}

std::uint8_t little_endian_byte(std::uint64_t value, std::size_t index) {
  return static_cast<std::uint8_t>(value >> (8 * index));
}

/// Byte of the record: both sums, the counter and four zero bytes.
std::uint8_t record_byte(std::size_t index) {
  if (index < 8) return little_endian_byte(entropy.time_sum, index);
  if (index < 16) return little_endian_byte(entropy.clock_sum, index - 8);
  return little_endian_byte(entropy.counter, index - 16);
}

/// A whole number from 0 to 999.
int draw_digit() {
  for (;;) {
    innerQ_runif_int_reseed();
    const float scaled = static_cast<float>(std::rand()) * 0x1p-31F * 1001.0F;
    const int digit = static_cast<int>(scaled);
    if (digit < DIGIT_END) return digit;
  }
}

}  // namespace

std::uint32_t innerQ_runif_int_reseed() {
  if (cursor >= RECORD_SIZE) refresh();
  const std::uint8_t byte = record_byte(cursor++);
  accumulator = ((accumulator * 257U) | 1U) + byte;
  std::srand(accumulator);
  return accumulator;
}

int Q_runif_int() {
  for (;;) {
    const int millions = draw_digit();
    const int thousands = draw_digit();
    const int units = draw_digit();
    const auto n = static_cast<float>(millions * 1000000 + thousands * 1000 + units);
    const float id = n / ID_END * ID_END + 1.0F;
    if (id < ID_END) return std::max(1, static_cast<int>(id));
  }
}
