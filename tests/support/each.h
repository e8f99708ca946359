#pragma once

// Tables of inputs and what becomes of them.

#include <gtest/gtest.h>

#include <initializer_list>
#include <utility>

/// Expects the function to make of each input what stands beside it.
template <typename Input, typename Output, typename Function>
void expect_each(const Function& function, std::initializer_list<std::pair<Input, Output>> rows) {
  for (const auto& [input, output] : rows)
    EXPECT_EQ(function(input), output) << "of " << testing::PrintToString(input).substr(0, 300);
}
