#pragma once

// Asks the project web site for a newer version.

/// Whether the first line of the site's version file names a newer version than this program's: it
/// begins with a number whose hundredths, rounded down, exceed the own version's.
bool kvo_is_newer_version(const char* reply_line);

/// Asks the site and offers a newer version to the user. False when none is known, also when the
/// site does not answer within wget's time-outs; true when the user declined it. When the user
/// accepts, downloads the update program into the installation root and ends the process with
/// status 0.
bool kvo3_new_update();

/// Handler of the update action: kvo3_new_update, and a message when there is nothing newer.
void kvo3_check_updates();
