#pragma once

// Addresses of the project web site. Each ends with a slash.

#include <string>

/// The public address, configured when the program was built: what users are shown.
const char* kvo_public_site();

/// The address that pages are opened at: the public one, unless kvo_find_served_site has found
/// another.
const char* kvo_site();

/// Takes over the address that the launcher serves the site at on this machine, which it leaves in
/// the file etc/kvo_site.txt of the installation root. A file that holds anything but one line with
/// a plain address of the loopback interface counts as none.
void kvo_find_served_site(const std::string& root);

/// Whether the address is http://127.0.0.1:PORT/ or http://localhost:PORT/, with folders of plain
/// names after it or none. It then means nothing to the shell between double quotes.
bool kvo_is_loopback_site(const std::string& address);
