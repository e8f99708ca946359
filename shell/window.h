#pragma once

// The main window as other units know it, and its title.

#include <gtk/gtk.h>

/// The main top-level window; null when there is none (any more).
extern GtkWidget* Qw_Window;

/// Makes the formatted text the main window's title, while there is one.
[[gnu::format(printf, 1, 2)]] void Q_set_title(const char* format, ...);
