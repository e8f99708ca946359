#include "companions/kvo_edit/peaks.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string_view>

#include "engine/base/refusal.h"
#include "engine/base/text_file.h"
#include "engine/studies/study_rules.h"
#include "util/text.h"
#include "util/whole_file.h"

namespace kvo::edit {

namespace {

constexpr std::string_view NEW_FILE =
    "# space: MNI\n"
    "# One peak a line: x y z t (mm; t value, or p or n for a positive or negative peak without "
    "one)\n";

}  // namespace

std::string peaks_path(const std::string& table_path, const std::string& study) {
  if (is_missing(study)) throw Refusal("The study has no name.");
  if (const char* fault = Q_name_fault(study))
    throw Refusal("The name of the study " + std::string(fault) +
                  ", so that no file can belong to it.");
  const std::filesystem::path table = std::filesystem::absolute(table_path);
  return table.parent_path() / peaks_file_of(study);
}

void create_peaks_file(const std::string& path) {
  if (!Q_create_whole(path.c_str(), NEW_FILE))
    throw Refusal("'" + path + "' cannot be made: " + std::strerror(errno) + ".");
}

}  // namespace kvo::edit
