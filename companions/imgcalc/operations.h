#pragma once

// What the image calculator does to images.

#include "companions/imgcalc/command_line.h"
#include "imaging/nifti_header.h"

/// Carries out a command. Throws Refusal, with all files as they were, when an image cannot be read
/// or written, and Cancelled when a signal has asked for the end.
void carry_out(const Command& command);

/// Declares what the values are, with a parameter that is the degrees of freedom of t statistics.
void declare_values(Nifti_header& header, std::int16_t intent_code, double parameter);

/// Declares the space: sets both codes, and where the header places the voxels by one of the two
/// transforms only, makes the other one agree with it. A header with neither gets one whose origin
/// is the middle of the image. False when the header places the voxels at no sensible points.
bool declare_space(Nifti_header& header, std::int16_t space_code);
