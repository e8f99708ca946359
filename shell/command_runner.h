#pragma once

// Runs command lines of the suite's language through `kvo_parse` and shows its progress.

#include <gtk/gtk.h>

/// Formats a command line and runs it to its end: echoes it in the console, with `record` also adds
/// it to the batch pane, shows the busy pop-up and the engine's output, and returns when the engine
/// has ended or is gone. An empty command does nothing; a comment ("#") is only echoed. The text
/// goes to the system shell as it is: callers vouch for every name they put into it.
[[gnu::format(printf, 2, 3)]] void kvo3_exec_core(bool record, const char* format, ...);

/// Handler of "key-release-event" of the command entry's text field, which stands in a combo box:
/// one of the Enter keys runs the typed command and adds it to the drop-down list.
gboolean kvo3_core(GtkWidget* entry, GdkEventKey* event, gpointer data);
