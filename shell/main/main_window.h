#pragma once

// The one main window: menus, toolbars, console panes, command entry and About box.

#include <gtk/gtk.h>

/// Builds and shows the main window, and fills Qw_Window and the first two console panes.
void kvo3_main();

/// Says goodbye on standard output and ends the main loop. Nothing is asked or saved.
void kvo3_main_quit();

/// Shows the About box and returns when the user has closed it.
void kvo3_about();

/// The window's actions by the names of the actions table; for tests and for what else needs to
/// find one.
GtkActionGroup* kvo3_actions();
