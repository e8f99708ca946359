#pragma once

// Shows what is understood of a pasted block of peaks before it becomes rows.

#include <gtk/gtk.h>

#include <string>
#include <vector>

#include "companions/kvo_edit/edit_layer.h"

namespace kvo::edit {

/// The rows that the user agrees to, for the table of a Peaks_sheet; none when cancelled.
std::vector<std::vector<std::string>> ask_pasted_peaks(GtkWidget* window, const std::string& text);

}  // namespace kvo::edit
