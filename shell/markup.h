#pragma once

// Pango markup in text buffers: each attribute run of the markup becomes text with a tag of its
// own.

#include <gtk/gtk.h>

/// Replaces the whole content of a buffer by the formatted markup. Empty markup leaves the buffer
/// as it was.
[[gnu::format(printf, 2, 3)]] void gtk_text_buffer_set_markup(GtkTextBuffer* buffer,
                                                              const char* format, ...);

/// Inserts markup at a position of the buffer, which then stands behind the inserted text. Each run
/// gets a new anonymous tag, and the extra tag unless that is null. Markup that is not valid is
/// logged and inserts nothing.
void gtk_text_buffer_real_insert_markup(GtkTextBuffer* buffer, GtkTextIter* textiter,
                                        const char* markup, GtkTextTag* extra_tag);
