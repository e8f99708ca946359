#pragma once

// Runs the image calculator.

/// Runs `imgcalc` with the formatted arguments, which go to the shell as they are, and shows its
/// progress in the console until it is done. False when it ended before it was: a console warning
/// then says why.
[[gnu::format(printf, 1, 2)]] bool kvo3_exec_imgcalc(const char* format, ...);
