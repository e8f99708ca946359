#pragma once

// The studies of a working folder on their way from and to other programs' files.

#include <optional>
#include <string>
#include <vector>

#include "engine/formats/foreign.h"

namespace kvo::formats {

/// What an import will write.
struct ImportPlan {
  std::optional<std::string>
      table;  ///< the text of the study table; nothing when it stays as it is
  std::vector<const NewStudy*> added;
  std::size_t known = 0;  ///< studies that the folder has already, with the same content
};

/// The plan for the working folder. Throws Refusal when the folder has a study of the same name
/// with other content, or its table is not a table. The plan points to the studies.
ImportPlan import_plan(const NewStudies& studies);

/// Writes the table and the added studies' peaks files, all or nothing.
void write_import(const ImportPlan& plan);

struct ExportedStudies {
  std::vector<NewStudy> studies;
  std::vector<std::string> with_images;  ///< the studies that have an image and no peaks
};

/// All studies of the working folder. Throws Refusal when they are invalid.
ExportedStudies folder_studies();

}  // namespace kvo::formats
