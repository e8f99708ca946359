#pragma once

// The console: everything that is printed in the main pane (0) and the batch pane (1). All printed
// text is Pango markup and must be valid as such; text that is not is logged and not shown.

#include <gtk/gtk.h>

#include <array>

/// Text buffers of the panes and the views that show them; unused slots are null, and so are those
/// of panes that are gone with their window.
extern std::array<GtkTextBuffer*, 100> Qw_v_OutputBuffer;
extern std::array<GtkWidget*, 100> Qw_v_OutputView;

/// Makes the pane of a slot and returns the frame that holds it.
GtkWidget* Q_new_pane(std::size_t slot, bool editable);
/// Whether the main pane is gone: the user has closed the window, so work in progress has no one
/// left to do it for. Anything printed now is lost.
bool Q_console_gone();

/// The slot of the batch pane.
inline constexpr int Q_BATCH_PANE = 1;

/// Span attributes of the console's kinds of text.
inline constexpr const char* Q_GREY = "color='#666666'";
inline constexpr const char* Q_BLUE = "color='#0000cc'";
inline constexpr const char* Q_RED = "color='#ff0000'";
inline constexpr const char* Q_ENGINE = "color='#004422' font_family='monospace'";

/// Appends the formatted markup, inside a span with the attributes unless they are empty, to the
/// pane, scrolls to its end and lets the toolkit process all pending events. Adds no line feed;
/// only in the batch pane, which the user edits, it first ends a line that is still open.
[[gnu::format(printf, 3, 4)]] void Q_print(const char* attributes, int pane, const char* format,
                                           ...);

/// Begins a step of work: a time stamp, the text and "..." without a line end. The text also
/// becomes the busy pop-up's label while that is shown, with its entities as plain characters.
[[gnu::format(printf, 2, 3)]] void Q_print_action(int pane, const char* format, ...);
/// The time stamp and a bold "DONE", and an empty line.
void Q_print_done(int pane);
/// The time stamp and a bold "CANCELLED", and an empty line.
void Q_print_cancelled(int pane);
/// "WARNING: ", the text and a line end in red.
[[gnu::format(printf, 2, 3)]] void Q_print_warning(int pane, const char* format, ...);

/// Scrolls a pane's view, when there is one, to the end of its buffer.
void Q_scroll_to_end(int pane);

/// Lets the toolkit process pending events until none are left.
void Q_process_events();

/// The frame that holds a pane's view: scrolling vertically only, wrapped at words, white; with
/// `editable` the user can type in it and sees a cursor. The view already shows the buffer.
GtkWidget* Q_input_new_textframe(GtkTextBuffer* buffer, GtkWidget* view, bool editable);
