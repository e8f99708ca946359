#pragma once

#include <sys/stat.h>

#include <string>

namespace kvo::base {

/// Whether there is something at the end of the path, links followed.
inline bool path_exists(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0;
}

/// Whether a folder has such an entry, which may be a link that leads nowhere.
inline bool entry_exists(const std::string& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0;
}

}  // namespace kvo::base
