#pragma once

// What the main functions of programs that report by the line protocol have in common.

#include <functional>
#include <string>

namespace kvo::base {

/// The arguments of the program joined with single blanks.
std::string joined_words(int argc, char** argv);

/// Runs the work with cancel signals caught, and writes the closing lines of a run that ended by an
/// exception. The work closes its report itself otherwise, and returns whether all went well.
/// Returns the exit status of the program.
int exit_status_of(const std::function<bool()>& work);

}  // namespace kvo::base
