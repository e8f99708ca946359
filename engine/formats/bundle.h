#pragma once

// A meta-analysis in one file (zip) that another machine can replay: the study table, the studies'
// files and the batch, with their checksums and the version that made them.

#include <string>
#include <vector>

#include "engine/formats/formats_layer.h"

namespace kvo::formats {

/// Writes the working folder's table, its studies' files and its batch, if there is one, to a zip
/// file at the path, the same bytes for the same content. Returns the names of its files. Throws
/// Refusal when the table is invalid, a file is missing or the disk refuses.
std::vector<std::string> write_bundle(const std::string& path);

struct BundleContents {
  std::vector<std::string> added;  ///< files that the folder lacks
  std::size_t known = 0;           ///< files that it has, with the same content
  std::string version;             ///< the program that made the bundle
};

/// Checks a bundle. Throws Refusal, naming the file, when it is not one, something in it differs
/// from its checksum or has a name that no file of a meta-analysis has, or the working folder has a
/// file of the same name with other content.
BundleContents check_bundle(const std::string& path);
/// Puts the files that the folder lacks into it, all or nothing.
BundleContents unpack_bundle(const std::string& path);

}  // namespace kvo::formats
