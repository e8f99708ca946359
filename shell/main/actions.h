#pragma once

// The actions behind menus and toolbars, and where they stand there.

#include <gtk/gtk.h>

/// A new group with the program's 24 actions; those that have no handler yet are insensitive.
GtkActionGroup* kvo3_new_actions();

/// The description of the menu bar "/menu" and the toolbars "/toolbar1" and "/toolbar2" for
/// gtk_ui_manager_add_ui_from_string.
extern const char* const kvo3_ui_description;
