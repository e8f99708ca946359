#pragma once

#include <stdexcept>

namespace kvo::base {

/// A problem that the user must hear of and that ends the command: what() is the whole sentence,
/// plain text, naming the file (and line) and what is wrong with it.
struct Refusal : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// Thrown out of a computation after the user or the system has asked it to end.
struct Cancelled {};

}  // namespace kvo::base
