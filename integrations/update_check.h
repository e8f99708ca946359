#pragma once

// Asks for a newer version at the address that the program was built with, and nowhere else.

/// Whether the first line of the site's version file names a newer version than this program's: it
/// begins with a number whose hundredths, rounded down, exceed those of this version. Text that
/// only looks like infinity ("Information", say) does not count.
bool kvo_is_newer_version(const char* reply_line);

enum class Update {
  NONE_KNOWN,  ///< none is newer, or the site has not told
  DECLINED,
  FAILED,  ///< the user has been told why
  DOWNLOADED
};
/// Asks the site at a base address (with a final slash) and offers a newer version to the user. A
/// version that the user accepts is downloaded and becomes the executable "update" of the
/// installation root, in place of an earlier one.
///
/// The version file may describe update programs below its first line, each in a line of name, size
/// and SHA-256: "update4.31 10240 9f86d08...". A download that is not as described is deleted, and
/// so is one that a site which describes others does not describe. Where nothing is described,
/// whether the download succeeds is not looked at.
///
/// A site that does not answer holds the program up for no longer than wget's time-outs for
/// look-up, connection and reading together (6 s), whatever it sends meanwhile.
Update kvo_offer_update(const char* site);

/// kvo_offer_update of the configured address. True when the user declined a newer version or its
/// download failed, false when none is known. When the update has been downloaded, ends the process
/// with status 0.
bool kvo3_new_update();

/// Handler of the update action: kvo3_new_update, and a message when there is nothing newer.
void kvo3_check_updates();
