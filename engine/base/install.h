#pragma once

// Where the installation is: the programs stand together in a folder two levels below its root.

#include <string>

namespace kvo::base {

/// Absolute path of the program's companion of that name. Throws Refusal when the place of the
/// running program is not known.
std::string companion_path(const std::string& program);

/// Absolute path of a file of the installation's share folder.
std::string share_path(const std::string& file);

}  // namespace kvo::base
