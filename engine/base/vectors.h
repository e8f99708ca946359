#pragma once

// Macros that let the compiler vectorise loops over voxels.

// Before a function: wider vectors where the processor has them. Products and sums are never fused,
// so each voxel gets the same value with any of the variants. Not with the sanitizers, which have
// not started yet when the variant is chosen.
#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define WIDEST_VECTORS
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) && !defined(WIDEST_VECTORS)
#define WIDEST_VECTORS
#elif !defined(WIDEST_VECTORS)
#define WIDEST_VECTORS [[gnu::target_clones("default", "arch=x86-64-v3")]]
#endif

// INDEPENDENT, before a loop: no iteration reads what another writes. UNROLLED, before a loop
// inside one over voxels: its few iterations, whose number is known at compile time, are unrolled
// so that the outer loop can be vectorised.
#if defined(__clang__)
#define INDEPENDENT
#define UNROLLED
#else
#define INDEPENDENT _Pragma("GCC ivdep")
#define UNROLLED _Pragma("GCC unroll 16")
#endif
