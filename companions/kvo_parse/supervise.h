#pragma once

// Runs kvo_core as a child process and reports its end, however it comes, to whoever reads the
// progress.

#include <string>
#include <vector>

#include "engine/base/base_layer.h"

namespace kvo::parse {

using namespace base;

/// Starts the program with those arguments, without a shell, and passes its lines on to standard
/// output, up to its closing line. A cancel signal is handed down to it, and it is killed when it
/// is still there 10 s later, whatever it writes meanwhile. When it ends without having closed its
/// report, its leftovers in the working folder are put in order and a closing line says what
/// happened. When this process is killed, the child is told to cancel. Returns whether the command
/// went well.
bool supervise(const std::string& program, const std::vector<std::string>& arguments);

}  // namespace kvo::parse
