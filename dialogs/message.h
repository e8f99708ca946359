#pragma once

// The message dialog.

/// Shows the formatted text, as plain text, in a modal dialog with one OK button, and returns when
/// the user has answered or closed it.
[[gnu::format(printf, 1, 2)]] void Q_input_warning(const char* format, ...);
