#pragma once

// Shared by the main functions of all programs that report in the line protocol.

#include <functional>
#include <string>

namespace kvo::base {

/// The arguments of the program joined with single blanks.
std::string joined_words(int argc, char** argv);

/// Runs the work with cancel signals caught. If it throws, writes the closing lines of the report;
/// otherwise the work has closed the report itself and returns whether all went well. Returns the
/// exit status of the program.
int exit_status_of(const std::function<bool()>& work);

}  // namespace kvo::base
