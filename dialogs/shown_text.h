#pragma once

// Texts as the dialogs show them.

#include <gtk/gtk.h>

#include "util/handles.h"

/// The text with U+FFFD in the place of bytes that are not UTF-8: messages and options may hold
/// file names, which need not be UTF-8, and the toolkit would show nothing of them.
Q_g_memory<char> Q_shown_text(const char* text);

/// Makes a label wrap between words, and inside a word that is too long for a line, as paths are.
void Q_wrap_label(GtkWidget* label);
/// The same for the text of a message dialog.
void Q_wrap_message(GtkWidget* message_dialog);
