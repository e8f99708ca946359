#pragma once

// The end of the program after a problem that it cannot go on from.

/// Formats the message, shows "%s.\nThe program will close as this problem could cause fatal
/// errors." of it and ends the process with exit status 1. Never returns; nothing is saved.
[[noreturn]] [[gnu::format(printf, 1, 2)]] void Q_error(const char* format, ...);

/// How Q_error shows its text. Until a presenter is set, and when it is null, the text goes to
/// standard error: that is how a failure before the toolkit is initialised reaches the user.
using Q_error_presenter = void (*)(const char* text);
void Q_set_error_presenter(Q_error_presenter presenter);
