#pragma once

// Opening of a peaks file in the editor that the desktop has for text files.

#include <gtk/gtk.h>

#include <string>

namespace kvo::edit {

/// Opens the file, after offering to make it when it is missing. Throws Refusal when it cannot be
/// made or opened; a failure of the desktop that comes later is shown in a dialog.
void offer_and_open_peaks(GtkWidget* window, const std::string& path);

}  // namespace kvo::edit
