#pragma once

// The input dialog: a table of questions, asked and answered at once.
//
//   std::array<Q_input_item, 2> items;
//   Q_input_item_str(items, 0, "Name", "mean");
//   Q_input_item_num(items, 1, "FWHM (mm)", 0, 1, 40, 20);
//   if (!Q_input("PREPROCESSING\nPlease enter a name.", 2, items)) return;
//   use(items[0].text, items[1].value);

#include <gtk/gtk.h>

#include <span>

#include "dialogs/input_item.h"
#include "dialogs/widgets.h"
#include "util/q_string.h"

/// Asks the first n items in a modal dialog. The message's first line is its title, the rest its
/// explanation. 1 when the user pressed OK: the answers stand in the items. 0 for Cancel, Escape
/// and a closed window: the items are as they were, but a 't' item has lost its options either way.
/// What the fields hold is the answer: nothing is checked. An unknown kind is a fatal error.
int Q_input(const char* message, int n, std::span<Q_input_item> items);

// Readers of the fields that dialogs/widgets.h builds.

/// The entry's text with its white space normalised.
void Q_input_get_str(GtkWidget* entry, Q_string& text);
/// The number that the field's text begins with, 0 when there is none.
float Q_input_get_num(GtkWidget* field);
/// The absolute path of the file or folder chosen, also in a dialog; empty when there is none.
void Q_input_get_file(GtkWidget* chooser, Q_string& text);
/// The numbers that the three texts begin with, truncated toward zero.
Q_voxel Q_input_get_voxel(const Q_voxel_widgets& widgets);
/// Position of the chosen option, from 1; 0 when there is none.
int Q_input_get_opt(GtkWidget* list);
/// Whether the box is ticked.
bool Q_input_get_boolean(GtkWidget* check_box);
