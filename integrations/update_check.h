#pragma once

// Asks for a newer version at the address that the program was built with, and nowhere else.

/// Whether the first line of the site's version file names a newer version than this program's: it
/// begins with a number whose hundredths, rounded down, exceed the own version's. Text that only
/// reads like infinity ("Information", say) names none.
bool kvo_is_newer_version(const char* reply_line);

enum class Update {
  NONE_KNOWN,  ///< none is newer, or the site has not told
  DECLINED,
  DOWNLOADED
};
/// Asks the site at a base address (with a final slash) and offers a newer version to the user. A
/// version that the user accepts is downloaded as the executable "update" of the installation root;
/// whether that succeeds is not looked at. A site that does not answer holds the program up for as
/// long as wget's own time-outs for look-up, connection and reading together (6 s), whatever it
/// sends meanwhile.
Update kvo_offer_update(const char* site);

/// kvo_offer_update of the configured address. True when the user declined a newer version, false
/// when none is known. When the update has been downloaded, ends the process with status 0.
bool kvo3_new_update();

/// Handler of the update action: kvo3_new_update, and a message when there is nothing newer.
void kvo3_check_updates();
