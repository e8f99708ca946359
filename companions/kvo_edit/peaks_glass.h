#pragma once

// A small glass brain with the peaks of a study.

#include <gtk/gtk.h>

#include <functional>
#include <memory>
#include <vector>

#include "companions/kvo_edit/peaks_sheet.h"

namespace kvo::edit {

/// What is drawn: the peaks, and the rows of those that stand out.
struct Glass_peaks {
  std::vector<Drawn_peak> peaks;
  long first_row = -1, last_row = -1;
};

/// A widget that draws what it asks for in three views, the front at the right in the first of
/// them and left at the left. The mask says where the brain is; it may be empty.
GtkWidget* peaks_glass_new(const std::vector<bool>& brain, std::function<Glass_peaks()> peaks);

}  // namespace kvo::edit
