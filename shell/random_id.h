#pragma once

// Ids for temporary files. They need only differ between runs; nothing here is for statistics.

#include <cstdint>

/// A pseudo-random id from 1 to 999999999. The first draw of a process starts from the time of day,
/// and every draw depends on all draws before it.
int Q_runif_int();

/// One reseeding step: stirs the next byte of the entropy record into the accumulator and seeds the
/// C library's generator with it. Returns the new accumulator.
std::uint32_t innerQ_runif_int_reseed();
