#pragma once

// What the image wizard asks about an image and what it then does: decided from the header alone,
// without a window.

#include <span>
#include <string>

#include "util/q_string.h"

/// One answer that the wizard offers.
struct Convert_option {
  const char* text;
  /// The arguments of `imgcalc` that carry it out; null when it changes nothing.
  Q_string (*arguments)(const char* path, double degrees_of_freedom);
  bool asks_degrees_of_freedom;
};

struct Convert_question {
  const char* label;
  std::span<const Convert_option> options;
  int preselected;  ///< position from 1
};

/// Whether the engine can preprocess an image that declares these codes: t statistics in Talairach
/// or MNI space.
bool kvo_image_is_ready(int intent_code, int sform_code);

/// What is asked about the values and about the space of an image with the code.
Convert_question kvo_values_question(int intent_code);
Convert_question kvo_space_question(int sform_code);

/// The arguments that have `imgcalc` make a ".nii.gz" file of the image.
Q_string kvo_compress_arguments(const char* path);
/// The path of that file: the last three characters, "nii" or "hdr", become "nii.gz".
std::string kvo_compressed_path(const std::string& path);

/// Whether a command line can carry the path in double quotes.
bool kvo_path_fits_command(const std::string& path);
