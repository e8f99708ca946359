#pragma once

// Before a function: wider vectors where the processor has them. Products and sums are never fused,
// so each voxel gets the same value with any of the variants. The sanitizers cannot start before
// the choice is made.
#if defined(__SANITIZE_ADDRESS__)
#define WIDEST_VECTORS
#else
#define WIDEST_VECTORS [[gnu::target_clones("default", "arch=x86-64-v3", "arch=x86-64-v4")]]
#endif
