#pragma once

// The main window as other units know it, and its title.

#include <gtk/gtk.h>

/// The main top-level window.
extern GtkWidget* Qw_Window;

/// Makes the formatted text the main window's title.
[[gnu::format(printf, 1, 2)]] void Q_set_title(const char* format, ...);
