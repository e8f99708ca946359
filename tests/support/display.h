#pragma once

// The display that a test program with windows has to itself. No window manager runs on it: a test
// gives the focus itself, at once, and starts a window manager only when it is about one.

#include <gtk/gtk.h>

#include <functional>
#include <vector>

/// Handles what the main loop has to do until the condition holds; whether it does. The patience of
/// a minute is for a busy machine: only a failing test uses it up.
bool wait_until(const std::function<bool()>& condition);

/// Handles all that the display server has had to say until now.
void handle_display_events();

/// Gives a shown window the keyboard focus, which other windows of the program lose.
void give_focus(GtkWidget* window);

/// Moves the pointer, or presses or releases its button, at a place of a window of the server.
/// Like the focus it does not depend on where the real pointer is.
void send_pointer(GdkWindow* window, GdkEventType type, int x, int y, int state = 0);

/// The windows that the window manager names in a property of the root window, such as
/// "_NET_CLIENT_LIST_STACKING"; none without a window manager.
std::vector<gulong> windows_of_property(const char* name);

/// Starts a window manager and waits until it manages windows.
void start_window_manager();
