#pragma once

// The online manual, opened in the desktop's web browser.

#include "util/q_string.h"

/// Address of the online manual's topic page, to which a topic is appended; set at start-up.
extern Q_string Qs_HelpURL;
/// The topic that Help buttons open now: each handler sets its own before its first dialog.
extern Q_string Qs_HelpTopic;

/// Opens the current topic; what every Help button does.
void Q_show_help();

/// Asks the desktop to open the formatted address and returns at once; whether a browser opens is
/// not reported. An address with characters that would mean something to the shell is logged, not
/// opened.
[[gnu::format(printf, 1, 2)]] void Q_open_browser(const char* format, ...);

/// Opens the manual's main page.
void kvo3_help();
