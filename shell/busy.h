#pragma once

// The modal pop-up that stands over the main window while a companion program works.

#include <gtk/gtk.h>

/// The pop-up and its label; both null while no work goes on.
extern GtkWidget* Qw_WorkingWindow;
extern GtkWidget* Qw_WorkingWindowLabel;
/// True while the pop-up exists.
extern bool Q_busy;

/// Shows (`on` true) or hides the pop-up, titled "%s Working..." of the name. Hiding scrolls every
/// console pane to its end. The calls come in pairs around one run of a companion program. Closing
/// the pop-up by the window manager does nothing: it stays until the run has ended.
void Q_set_busy(const char* name, bool on);
