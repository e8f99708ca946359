#pragma once

// Runs command lines of the suite's language through `kvo_parse` and shows its progress.

#include <gtk/gtk.h>

#include <string>

/// Formats a command line and runs it to its end: echoes it in the console, with `record` also adds
/// it to the batch pane, shows the busy pop-up and the engine's output, and returns when the engine
/// has ended or is gone. An empty command does nothing; a comment ("#") is only echoed. The text
/// goes to the system shell as it is: callers vouch for every name they put into it. False when the
/// user has ended what goes on: by cancelling the command or by closing the window.
[[gnu::format(printf, 2, 3)]] bool kvo3_exec_core(bool record, const char* format, ...);

/// Has the handler called with each command that the engine has ended, as long as the window is
/// there.
void kvo3_connect_command_end(void (*handler)(const std::string& command));

/// Lets the text field of the command entry, which stands in a combo box, run what is typed in it.
void kvo3_connect_entry(GtkWidget* entry);

/// Handler of "key-release-event" of that field: one of the Enter keys, when it was pressed in the
/// field too, runs the typed command and adds it to the drop-down list. While other work goes on
/// the command stays where it is.
gboolean kvo3_core(GtkWidget* entry, GdkEventKey* event, gpointer data);
