#pragma once

// What the image calculator does to images.

#include <cstdint>
#include <functional>
#include <string>

#include "companions/imgcalc/command_line.h"
#include "nifti/nifti_header.h"

namespace kvo::imgcalc {

/// Receives a sentence, without its full stop, about a side effect of the operation.
using Say = std::function<void(const std::string&)>;

/// Carries out a command. Throws Refusal, with all files unchanged, when an image cannot be read or
/// written, and Cancelled when a signal has arrived.
void carry_out(const Command& command, const Say& say);

/// Declares what the values are, with a parameter that is the degrees of freedom of t statistics.
void declare_values(Nifti_header& header, std::int16_t intent_code, double parameter);

/// Declares the space (NIFTI_MNI or NIFTI_TALAIRACH): sets both codes, gives all lengths in mm, and
/// makes the qform agree with the sform, or the sform with a qform that stands alone. A header with
/// neither gets the affine of the space's standard grid that the voxels have, with i to the right.
/// Says each change of where a header's transform places the voxels. Throws Refusal, naming the
/// path, when the header's affine makes no sense.
void declare_space(Nifti_header& header, std::int16_t space_code, const std::string& path,
                   const Say& say);

}  // namespace kvo::imgcalc
