#pragma once

// Loops over independent pieces of work on all processors.

#include <omp.h>

#include <cstddef>
#include <exception>

#include "engine/base/cancel.h"

namespace kvo::base {

/// Calls work(i, thread) once for each i below `count`, on as many threads as OpenMP offers, giving
/// each piece to the first free thread; `thread` is below omp_get_max_threads(). The pieces must
/// not depend on each other. If pieces throw, the exception of the lowest i is rethrown; a
/// cancelled run skips what is left and throws Cancelled.
template <typename Work>
void in_parallel(std::size_t count, const Work& work) {
  std::exception_ptr failure;
  std::size_t failed = count;
#pragma omp parallel for schedule(dynamic)
  for (std::size_t i = 0; i < count; ++i) {
    if (cancel_requested()) continue;
    try {
      work(i, std::size_t(omp_get_thread_num()));
    } catch (...) {
#pragma omp critical(in_parallel_failure)
      if (i < failed) {
        failed = i;
        failure = std::current_exception();
      }
    }
  }
  if (failure) std::rethrow_exception(failure);
  stop_if_cancelled();
}

}  // namespace kvo::base
