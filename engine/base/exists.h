#pragma once

#include <sys/stat.h>

#include <string>

namespace kvo::base {

/// Whether the path exists, following links.
inline bool path_exists(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0;
}

/// Whether there is such a directory entry, which may be a dangling link.
inline bool entry_exists(const std::string& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0;
}

}  // namespace kvo::base
