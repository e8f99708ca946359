#pragma once

// Option texts that are given as the last arguments of a call.

#include <algorithm>
#include <cassert>
#include <concepts>

#include "util/text.h"

/// Copies of the n texts. A count that does not agree with the texts is an error of the caller.
template <std::same_as<char>... Chars>
Q_string_list Q_option_list(int n, const Chars*... options) {
  constexpr int GIVEN = sizeof...(options);
  assert(n == GIVEN);
  Q_string_list copies{Q_malloc_string("%s", options)...};
  copies.resize(static_cast<std::size_t>(std::clamp(n, 0, GIVEN)));
  return copies;
}
