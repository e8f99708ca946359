#pragma once

// The file chooser of the image wizard.

#include <optional>
#include <span>
#include <string>

/// Name of the filter that shows the files of one pattern: "NIfTI files (*.nii)".
std::string kvo_filter_name(const char* pattern);
/// Name of the filter that shows the files of all of them.
std::string kvo_all_filter_name(std::span<const char* const> patterns);

/// Asks for an image, beginning in the working folder. Its absolute path; nothing when the user
/// chose none.
std::optional<std::string> kvo3_choose_image();
