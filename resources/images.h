#pragma once

// The images that are compiled into the program.

#include <gdk-pixbuf/gdk-pixbuf.h>

/// The application icon (64 x 64) and the product lettering (208 x 86): GdkPixdata as inline bytes,
/// raw, 8 bits per sample, with alpha.
extern const guint8 image_kvo[];
extern const guint8 image_kvo_letters[];

/// A pixbuf that shows one of the arrays above and reads its pixels where they are, without a copy.
/// The caller owns the reference.
GdkPixbuf* kvo_image(const guint8* inline_bytes);
