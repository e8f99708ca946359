#pragma once

// Finding the installation: its programs share a folder two levels below its root.

#include <string>

namespace kvo::base {

/// Absolute path of the companion program of that name. Throws Refusal when the location of the
/// running program is not known.
std::string companion_path(const std::string& program);

/// Absolute path of a file in the installation's share folder.
std::string share_path(const std::string& file);

}  // namespace kvo::base
