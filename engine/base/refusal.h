#pragma once

#include <stdexcept>

namespace kvo::base {

/// A problem that ends the command and that the user is told of: what() is the whole sentence,
/// plain text, naming the file (and line) and what is wrong with it.
struct Refusal : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// Thrown by a computation that the user or the system has cancelled.
struct Cancelled {};

}  // namespace kvo::base
