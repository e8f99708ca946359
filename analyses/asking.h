#pragma once

// The steps that the handlers of the analyses have in common.

#include <string>

#include "analyses/composed.h"

/// Whether the working folder is preprocessed, that is, has a list of maps; tells the user when
/// not.
bool kvo_maps_found();

/// Shows the reason, unless it is empty; true when there was one.
bool kvo_refused(const std::string& reason);

/// Prints the comment into the batch pane.
void kvo_print_comment(const Kvo_composed& composed);
/// Prints the comment and runs the command, which is recorded.
void kvo_run(const Kvo_composed& composed);
