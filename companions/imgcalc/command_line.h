#pragma once

// What the image calculator can be asked to do.

#include <span>
#include <string>

#include "engine/images/images_layer.h"

namespace kvo::imgcalc {

using namespace images;

enum class Operation {
  compress,
  set_t,
  set_z,
  set_log10_p,
  set_mni,
  set_talairach,
  z_to_t,
  log10_p_to_t
};

struct Command {
  Operation operation = Operation::compress;
  std::string path;
  double df = 0;       ///< degrees of freedom, where the operation takes them
  std::string output;  ///< file to write, where the operation takes one
};

/// Whether the last word asks for the progress lines of the suite; removes it when it does.
bool take_progress_word(std::span<const char* const>& words);

/// Parses the arguments (without the program's name). Throws Refusal when they are not a command.
Command parse_command(std::span<const char* const> words);

/// What the command does, for the user: "Converting the z scores of 'x.nii.gz' into t statistics".
std::string description_of(const Command& command);

/// The text of --help.
std::string help_text();

}  // namespace kvo::imgcalc
