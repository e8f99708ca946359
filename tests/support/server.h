#pragma once

// Programs that serve a test program while it runs.

#include <sys/types.h>

/// Starts a program that is told to end when this process ends, in whatever way; ends by itself
/// with the status 127 when it cannot be started.
pid_t start_server(const char* const arguments[]);
